// Numbers in byte strings.
//
// Two ways to read: by offset, where a field has a place (frames, record headers), and from the front, where one thing
// follows the other (requests, replies). Neither reads past the end: the first answers zero for what lies outside, as
// if the bytes went on with zeros, the second says so.
#ifndef BASE_PACKED_H
#define BASE_PACKED_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

using const_bytes = std::span<const unsigned char>;
using mutable_bytes = std::span<unsigned char>;

// Network order.
inline uint16_t be16_at(const_bytes from, size_t offset)
{
  if (offset + 2 <= from.size())
    return static_cast<uint16_t>(from[offset] << 8 | from[offset + 1]);
  return offset < from.size() ? static_cast<uint16_t>(from[offset] << 8) : uint16_t{0};
}

// Six bytes, such as a hardware address: the first in bits 40 to 47.
inline uint64_t be48_at(const_bytes from, size_t offset)
{
  if (offset + sizeof(uint64_t) <= from.size()) {
    uint64_t word = 0;
    std::memcpy(&word, from.data() + offset, sizeof word);
    return (std::endian::native == std::endian::little ? __builtin_bswap64(word) : word) >> 16;
  }
  return static_cast<uint64_t>(be16_at(from, offset)) << 32 | static_cast<uint64_t>(be16_at(from, offset + 2)) << 16 |
         be16_at(from, offset + 4);
}

inline void be16_put(mutable_bytes to, size_t offset, uint16_t value)
{
  to[offset] = static_cast<unsigned char>(value >> 8);
  to[offset + 1] = static_cast<unsigned char>(value);
}

inline void be32_put(mutable_bytes to, size_t offset, uint32_t value)
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
void host_put(mutable_bytes to, size_t offset, Number value)
{
  std::memcpy(to.data() + offset, &value, sizeof value);
}

// Takes little-endian numbers and byte strings off the front; once it runs short it stays failed and answers zeros.
class packed_reader {
public:
  explicit packed_reader(const_bytes rest) : rest_(rest) {}

  template <typename Number>
  Number number()
  {
    uint32_t value = 0;
    const const_bytes field = take(sizeof(Number));
    for (size_t i = 0; i < field.size(); ++i)
      value |= static_cast<uint32_t>(field[i]) << (8 * i);
    return static_cast<Number>(value);
  }

  const_bytes take(size_t size)
  {
    if (failed_ || size > rest_.size()) {
      failed_ = true;
      return {};
    }
    const const_bytes front = rest_.first(size);
    rest_ = rest_.subspan(size);
    return front;
  }

  bool failed() const { return failed_; }
  bool at_end() const { return !failed_ && rest_.empty(); }

private:
  const_bytes rest_;
  bool failed_ = false;
};

// Appends a number of at most 32 bits, little-endian.
template <typename Number>
void packed_put(std::vector<unsigned char>& to, Number value)
{
  for (size_t i = 0; i < sizeof value; ++i)
    to.push_back(static_cast<unsigned char>(static_cast<uint32_t>(value) >> (8 * i)));
}

#endif
