// Random formats against the oracle: texts, bytes and log lines. CUSTOMID_RANDOM_FORMATS=n runs n of them.
#include "fuzz/customid/oracle.h"
#include "pppoeia/customid/customid.h"
#include "pppoeia/customid/vocabulary.h"
#include "pppoeia/log.h"
#include "tests/customid/example_node.h"
#include "tests/customid/node_stub.h"
#include "tests/support/syslog_capture.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <random>

namespace {

using random_source = std::mt19937;

size_t below(random_source& random, size_t n)
{
  return random() % n;
}

// Pieces of the language, likelier to fit together than bytes are.
std::string random_format(random_source& random)
{
  static const char* const words[] = {"$", "$",  "$h", "$z", "$s", "$d", "h", "z", "s",   "d",  "0",
                                      "1", "2",  "3",  "7",  "63", "99", "-", ":", "100", "00", "4294967295",
                                      " ", "$z", "a",  "f",  "G",  "",   "$", "$", "$2",  "$x", "$ab"};
  std::string format;
  const size_t pieces = below(random, 14);
  for (size_t i = 0; i < pieces && format.size() < bridge_format_max; ++i) {
    const size_t kind = below(random, 20);
    if (kind < 7)
      format += macro_rows()[below(random, customIdFormatCount)].name;
    else if (kind < 13)
      format += std::string("$") + words[below(random, std::size(words))] +
                std::string(macro_rows()[below(random, customIdFormatCount)].name);
    else if (kind < 19)
      format += words[below(random, std::size(words))];
    else
      format += static_cast<char>(1 + below(random, 255));
  }
  return format.substr(0, bridge_format_max);
}

// Port 9 of the example node, whose IPv6 address may be missing.
std::map<std::string, oracle_value> values_of_port_9(bool ipv6)
{
  return {{"SHELF", {"shelf-1", ""}},
          {"CHASSIS", {"99", ""}},
          {"PANEL", {"", "<br0> >> Cannot read valid panel"}},
          {"INTF_TYPE", {"atm", ""}},
          {"AGENT_BOARD", {"3", ""}},
          {"BOARD", {"", "<br0> >> Cannot read valid board type"}},
          {"PORT", {"9", ""}},
          {"PORT_REM_ID", {"C-4711", "<br0> >> Adding PORT_REM_ID from parent id: 7."}},
          {"INTF", {"0/9", ""}},
          {"INTF_DSCR", {"Main Street 5", "<br0> >> Adding INTF_DSCR from parent id: 7."}},
          {"ONU", {"", "<br0> >> Not ONU or GEM interface"}},
          {"VGEM", {"", "<br0> >> Not GEM interface"}},
          {"TCONT", {"", "<br0> >> Unknown macro: 12.\n", false}},
          {"PVC_INTF", {"2", ""}},
          {"VPI", {"8", ""}},
          {"VCI", {"35", ""}},
          {"CLNT_MAC", {"02:11:22:AA:BB:CC", ""}},
          {"AGENT_MAC", {"02:00:5E:10:00:01", ""}},
          {"AGENT_IPV4", {"10.1.2.30", ""}},
          {"AGENT_IPV6",
           ipv6 ? oracle_value{"2001:db8::1", ""} : oracle_value{"", "<br0> >> getIpv6Addr: ncfmGetIpv6 has failed\n"}},
          {"VLAN", {"300", ""}},
          {"VLAN_NAME", {"", "<br0> >> Cannot read VLAN name\n"}},
          {"CVID", {"5", ""}},
          {"SYSNAME", {"AN12", ""}},
          {"LOCATION", {"Springfield CO 3", ""}},
          {"CONTACT", {"noc@example.net", ""}},
          {"HEX", {"", "<br0> >> Unknown macro: 26.\n", false}},
          {"CPE_SERIAL", {"", ""}},
          {"CPE_MAC", {"00:00:00:00:00:00", ""}}};
}

oracle_identifier generate(const pppoeia_bridge& bridge, const std::string& format, int32_t level)
{
  oracle_identifier id;
  syslog_take();
  pppoeia_log_level = level;
  genCustomId(&bridge, 9, 300, 5, format, id.text, id.bin, idGenLive);
  pppoeia_log_level = log_info;
  id.log = syslog_take_texts();
  return id;
}

TEST(RandomFormats, AgreeWithTheOracle)
{
  const char* wanted = std::getenv("CUSTOMID_RANDOM_FORMATS");
  const long count = wanted ? std::atol(wanted) : 20000;
  example_node example;
  node().ipv4["dev9"] = {10, 1, 2, 30};
  random_source random(4711);
  for (long i = 0; i < count; ++i) {
    const bool ipv6 = below(random, 4) != 0;
    node().ipv6 =
        ipv6 ? std::optional(std::array<uint8_t, 16>{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1})
             : std::nullopt;
    const std::string format = random_format(random);
    oracle_identifier expected = oracle_generate(format, values_of_port_9(ipv6));
    ASSERT_EQ(generate(example.bridge(), format, log_debug), expected) << format;
    expected.log.clear();
    ASSERT_EQ(generate(example.bridge(), format, log_info), expected) << format;
  }
}

}  // namespace

void PrintTo(const oracle_identifier& id, std::ostream* out)
{
  *out << '\'' << id.text << "' " << testing::PrintToString(id.bin) << testing::PrintToString(id.log);
}
