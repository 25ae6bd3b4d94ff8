#include "rte/BLL/util/kv_util.h"

#include <arpa/inet.h>
#include <charconv>
#include <cstdio>
#include <cstring>

namespace {

// The whole text as a number of that base, at most `most`.
bool number_parse(std::string_view text, int base, unsigned most, unsigned& number)
{
  unsigned value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (error != std::errc{} || end != text.data() + text.size() || value > most)
    return false;
  number = value;
  return true;
}

// inet_pton() for a view: the longest address has 45 characters.
template <size_t Size>
bool address_parse(int family, std::string_view text, uint8_t* address)
{
  char terminated[46];
  uint8_t parsed[Size];
  if (text.size() >= sizeof terminated || text.find('\0') != std::string_view::npos)
    return false;
  std::memcpy(terminated, text.data(), text.size());
  terminated[text.size()] = '\0';
  if (inet_pton(family, terminated, parsed) != 1)
    return false;
  std::memcpy(address, parsed, Size);
  return true;
}

}  // namespace

std::string CKvUtil::etherTypeToString(uint16_t etherType)
{
  char text[8];
  std::snprintf(text, sizeof text, "0x%04x", etherType);
  return text;
}

bool CKvUtil::stringToEtherType(std::string_view text, uint16_t& etherType)
{
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  unsigned number = 0;
  if (!number_parse(hex ? text.substr(2) : text, hex ? 16 : 10, 0xffff, number))
    return false;
  etherType = static_cast<uint16_t>(number);
  return true;
}

std::string CKvUtil::macToString(const uint8_t mac[6])
{
  char text[18];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
  return text;
}

bool CKvUtil::stringToMac(std::string_view text, uint8_t mac[6])
{
  uint8_t parsed[6];
  for (size_t i = 0; i < 6; ++i) {
    const size_t end = i < 5 ? text.find_first_of(":-") : text.size();
    unsigned group = 0;
    if (end > 2 || !number_parse(text.substr(0, end), 16, 0xff, group))
      return false;
    parsed[i] = static_cast<uint8_t>(group);
    text.remove_prefix(i < 5 ? end + 1 : end);
  }
  std::memcpy(mac, parsed, sizeof parsed);
  return true;
}

std::string CKvUtil::ipv4ToString(const uint8_t address[4])
{
  char text[INET_ADDRSTRLEN];
  return inet_ntop(AF_INET, address, text, sizeof text);
}

bool CKvUtil::stringToIpv4(std::string_view text, uint8_t address[4])
{
  return address_parse<4>(AF_INET, text, address);
}

std::string CKvUtil::ipv6ToString(const uint8_t address[16])
{
  char text[INET6_ADDRSTRLEN];
  return inet_ntop(AF_INET6, address, text, sizeof text);
}

bool CKvUtil::stringToIpv6(std::string_view text, uint8_t address[16])
{
  return address_parse<16>(AF_INET6, text, address);
}
