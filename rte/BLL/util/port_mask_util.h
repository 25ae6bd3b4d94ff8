// Sets of ports as bit masks: port n is bit (n - 1) & 7 of byte (n - 1) >> 3, port 1 the lowest bit of the first byte.
#ifndef RTE_BLL_UTIL_PORT_MASK_UTIL_H
#define RTE_BLL_UTIL_PORT_MASK_UTIL_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

class CPortMaskUtil {
public:
  // Each false for a port that the mask has no bit for, 0 included.
  static bool set(std::span<uint8_t> mask, uint32_t port);
  static bool clear(std::span<uint8_t> mask, uint32_t port);
  static bool test(std::span<const uint8_t> mask, uint32_t port);

  static uint32_t count(std::span<const uint8_t> mask);

  // Sets exactly the ports of a list "1-4,7"; false, and the mask as it was, when the text is none or names a port that
  // the mask has no bit for.
  static bool fromString(std::string_view text, std::span<uint8_t> mask);
  // The list of the ports set; empty for none.
  static std::string toString(std::span<const uint8_t> mask);
};

#endif
