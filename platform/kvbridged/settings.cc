#include "platform/kvbridged/settings.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <sstream>

namespace kvbridged {
namespace {

std::vector<std::string> parts_of(const std::string& text)
{
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, ',');)
    parts.push_back(part);
  return parts;
}

unsigned number(const std::string& text, unsigned least, unsigned most)
{
  const bool hex = text.starts_with("0x");
  const char* begin = text.data() + (hex ? 2 : 0);
  unsigned value = 0;
  const auto [end, error] = std::from_chars(begin, text.data() + text.size(), value, hex ? 16 : 10);
  if (error != std::errc{} || end != text.data() + text.size() || value < least || value > most)
    throw fatal("no number from " + std::to_string(least) + " to " + std::to_string(most) + ": '" + text + "'");
  return value;
}

constexpr unsigned port_most = 65535;

}  // namespace

bridge_settings bridge_parse(const std::string& text)
{
  const std::vector<std::string> parts = parts_of(text);
  bridge_settings bridge;
  if (parts.empty() || parts[0].empty() || parts[0].size() > 10 || parts[0].find('/') != std::string::npos)
    throw fatal("no bridge name of 1 to 10 characters: '" + text + "'");
  bridge.name = parts[0];
  for (size_t i = 1; i < parts.size(); ++i) {
    if (parts[i].starts_with("stag="))
      bridge.stag_ethertype = static_cast<uint16_t>(number(parts[i].substr(5), 0x600, 0xffff));
    else if (parts[i].starts_with("mtu="))
      bridge.mtu = static_cast<int>(number(parts[i].substr(4), 68, 9000));
    else
      throw fatal("no such bridge setting: '" + parts[i] + "'");
  }
  return bridge;
}

void port_parse(const std::string& text, std::vector<bridge_settings>& bridges)
{
  constexpr unsigned addresses_default = 1024;
  constexpr char addresses_key[] = "addresses=";
  const std::vector<std::string> parts = parts_of(text);
  const bool more = parts.size() == 5 && parts[4].starts_with(addresses_key);
  if ((parts.size() != 4 && !more) || (parts[2] != "subscriber" && parts[2] != "network"))
    throw fatal("a port is BRIDGE,PORT,subscriber|network,INTERFACE[,addresses=COUNT], not '" + text + "'");
  const unsigned addresses =
      more ? number(parts[4].substr(std::strlen(addresses_key)), 1, 1'000'000) : addresses_default;
  const auto at = std::ranges::find(bridges, parts[0], &bridge_settings::name);
  if (at == bridges.end())
    throw fatal("no such bridge: '" + parts[0] + "'");
  at->ports.push_back(
      {static_cast<uint16_t>(number(parts[1], 1, port_most)), parts[2] == "network", parts[3], addresses});
}

void port_number_parse(const std::string& text, kernel_settings& kernel)
{
  const size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0)
    throw fatal("a port of a kernel bridge is INTERFACE=PORT, not '" + text + "'");
  kernel.numbers[text.substr(0, equals)] = static_cast<uint16_t>(number(text.substr(equals + 1), 1, port_most));
}

padi_rate padi_rate_parse(const std::string& text)
{
  constexpr unsigned most = 1'000'000;
  constexpr char burst_key[] = "burst=";
  const std::vector<std::string> parts = parts_of(text);
  if (parts.empty() || parts.size() > 2 || (parts.size() == 2 && !parts[1].starts_with(burst_key)))
    throw fatal("a PADI rate is COUNT[,burst=COUNT], not '" + text + "'");
  padi_rate rate{.per_second = number(parts[0], 1, most)};
  rate.burst = parts.size() == 2 ? number(parts[1].substr(std::strlen(burst_key)), 1, most) : rate.per_second;
  return rate;
}

}  // namespace kvbridged
