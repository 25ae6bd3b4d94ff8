#include "rte/BLL/util/port_mask_util.h"

#include "rte/BLL/util/range_number.h"

#include <algorithm>
#include <bit>

namespace {

uint32_t ports_of(size_t bytes)
{
  return static_cast<uint32_t>(std::min<size_t>(bytes * 8, UINT32_MAX));
}

uint8_t bit_of(uint32_t port)
{
  return static_cast<uint8_t>(1u << ((port - 1) & 7));
}

bool has(size_t bytes, uint32_t port)
{
  return port != 0 && port <= ports_of(bytes);
}

}  // namespace

bool CPortMaskUtil::set(std::span<uint8_t> mask, uint32_t port)
{
  if (!has(mask.size(), port))
    return false;
  uint8_t& byte = mask[(port - 1) >> 3];
  byte = static_cast<uint8_t>(byte | bit_of(port));
  return true;
}

bool CPortMaskUtil::clear(std::span<uint8_t> mask, uint32_t port)
{
  if (!has(mask.size(), port))
    return false;
  uint8_t& byte = mask[(port - 1) >> 3];
  byte = static_cast<uint8_t>(byte & ~bit_of(port));
  return true;
}

bool CPortMaskUtil::test(std::span<const uint8_t> mask, uint32_t port)
{
  return has(mask.size(), port) && (mask[(port - 1) >> 3] & bit_of(port)) != 0;
}

uint32_t CPortMaskUtil::count(std::span<const uint8_t> mask)
{
  uint32_t total = 0;
  for (const uint8_t byte : mask)
    total += static_cast<uint32_t>(std::popcount(byte));
  return total;
}

bool CPortMaskUtil::fromString(std::string_view text, std::span<uint8_t> mask)
{
  CRangeNumber ports;
  if (!ports.parse(text, 1, ports_of(mask.size())))
    return false;
  std::fill(mask.begin(), mask.end(), uint8_t{0});
  for (const CRangeNumber::range_t& range : ports.ranges())
    for (uint64_t port = range.first; port <= range.last; ++port)
      set(mask, static_cast<uint32_t>(port));
  return true;
}

std::string CPortMaskUtil::toString(std::span<const uint8_t> mask)
{
  CRangeNumber ports;
  for (uint32_t port = 1; port <= ports_of(mask.size()); ++port)
    if (test(mask, port))
      ports.add({port, port});
  return ports.toString();
}
