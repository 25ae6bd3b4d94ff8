// Texts of addresses: IPv4, IPv6, MAC, EtherType. Nothing throws; what does not parse is refused and the output is
// left as it was. Any thread.
#ifndef RTE_BLL_UTIL_KV_UTIL_H
#define RTE_BLL_UTIL_KV_UTIL_H

#include <cstdint>
#include <string>
#include <string_view>

class CKvUtil {
public:
  // "0x88a8": four lower-case digits.
  static std::string etherTypeToString(uint16_t etherType);
  // Hexadecimal with "0x", or decimal; at most 65535.
  static bool stringToEtherType(std::string_view text, uint16_t& etherType);

  // "00:11:22:33:44:55": lower case, first byte first.
  static std::string macToString(const uint8_t mac[6]);
  // Six groups of one or two digits, separated by ":" or "-".
  static bool stringToMac(std::string_view text, uint8_t mac[6]);

  // Dotted decimal (RFC 1123 2.1); addresses in network order.
  static std::string ipv4ToString(const uint8_t address[4]);
  static bool stringToIpv4(std::string_view text, uint8_t address[4]);

  // RFC 4291 text forms, written as inet_ntop() does.
  static std::string ipv6ToString(const uint8_t address[16]);
  static bool stringToIpv6(std::string_view text, uint8_t address[16]);
};

#endif
