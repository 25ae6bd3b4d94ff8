// What is read out of the agent's report of a bridge, which quotes no text.
#include "tools/pppoeiactl/agent/bridge_report.h"

#include <gtest/gtest.h>

namespace {

TEST(BridgeReport, LeavesOutWhatIsNotCertain)
{
  const std::string text = " Global data:\n port_vlan data:\n"
                           " \tPort Id: 3, dev name: 'a', port_name: 'b'c': \n"
                           " \tPort Id: many, dev name: 'a', port_name: 'b': \n"
                           " \tPort Id: 4, dev name: 'longer than sixteen', port_name: 'b': \n"
                           " port data:\n"
                           " \tPort Id: 5, dev name: 'd', port_name: 'p', CPE serial: S', CPE MAC: 00:11:22:33:44:55\n"
                           " vlan data:\n"
                           "\tVlan: 7, name: 'x', prev: 6, next: ', prev: /, next: 9\n"
                           "\tVlan: 9, name: 'y', prev: 8, next: /\n";
  const bridge_report report = bridge_report_parse(text);
  EXPECT_EQ(report.ports.size(), 2u);
  EXPECT_EQ(report.ports.at(3).name, "b'c");
  EXPECT_EQ(report.ports.at(5).cpe_serial, "S");
  EXPECT_EQ(report.vlans, (std::map<uint16_t, std::string>{{7, "x', prev: 6, next: "}}));
  // Nor is what was cut off, wherever that was.
  for (size_t length = 0; length < text.size(); ++length) {
    const bridge_report cut = bridge_report_parse(text.substr(0, length));
    EXPECT_TRUE(cut.ports.empty() || cut.ports.contains(3)) << length;
    EXPECT_TRUE(cut.vlans.empty() || cut.vlans == report.vlans) << length;
  }
}

}  // namespace
