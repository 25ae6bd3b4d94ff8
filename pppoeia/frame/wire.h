// Numbers in byte strings. Reads answer zero for what lies outside, as if the bytes went on with zeros.
#ifndef PPPOEIA_FRAME_WIRE_H
#define PPPOEIA_FRAME_WIRE_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

using const_bytes = std::span<const unsigned char>;
using bytes = std::span<unsigned char>;

// Network order.
inline uint16_t be16_at(const_bytes from, size_t offset)
{
  if (offset + 2 <= from.size())
    return static_cast<uint16_t>(from[offset] << 8 | from[offset + 1]);
  return offset < from.size() ? static_cast<uint16_t>(from[offset] << 8) : uint16_t{0};
}

inline void be16_put(bytes to, size_t offset, uint16_t value)
{
  to[offset] = static_cast<unsigned char>(value >> 8);
  to[offset + 1] = static_cast<unsigned char>(value);
}

inline void be32_put(bytes to, size_t offset, uint32_t value)
{
  be16_put(to, offset, static_cast<uint16_t>(value >> 16));
  be16_put(to, offset + 2, static_cast<uint16_t>(value));
}

// Host order, unaligned. Zero for a number that does not lie inside whole.
template <typename Number>
Number host_at(const_bytes from, size_t offset)
{
  Number value = 0;
  if (offset + sizeof value <= from.size())
    std::memcpy(&value, from.data() + offset, sizeof value);
  return value;
}

template <typename Number>
void host_put(bytes to, size_t offset, Number value)
{
  std::memcpy(to.data() + offset, &value, sizeof value);
}

#endif
