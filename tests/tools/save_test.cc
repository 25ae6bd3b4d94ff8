// "save": what comes out makes the same card again, whatever its texts hold.
#include "tests/tools/running_agent.h"
#include "tests/tools/whole_card.h"
#include "tools/pppoeiactl/agent/bridge_report.h"

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;
using testing::Not;

std::string shown_by(const running_agent& agent)
{
  return agent.told({"show", "--json"});
}

TEST(Save, MakesTheSameCardAgain)
{
  std::string saved;
  std::string shown;
  {
    running_agent agent;
    const outcome made = agent.batch(whole_card);
    ASSERT_EQ(made.status, 0) << made.err;
    saved = agent.told({"save"});
    shown = shown_by(agent);
    EXPECT_EQ(agent.told({"save"}), saved);
    EXPECT_EQ(agent.ctl({"--json", "save"}).json()["batch"].get<std::string>().size(), saved.size());
  }
  running_agent fresh;
  const outcome made = fresh.batch(saved);
  ASSERT_EQ(made.status, 0) << made.err << saved;
  EXPECT_EQ(shown_by(fresh), shown);
  EXPECT_EQ(fresh.told({"save"}), saved);
  EXPECT_THAT(saved, HasSubstr("port add br0 5 unknown \"0 5\" --type \"a,b\\\\\" --parent 39\n"));
  EXPECT_THAT(saved, HasSubstr("port add br0 6 atm6 \"\" --type atm"));
  EXPECT_THAT(saved, HasSubstr("port description set br0 39 \"Main Street 5\"\n"));
  EXPECT_THAT(saved, Not(HasSubstr("port description set br0 5")));  // that is its parent's
  EXPECT_THAT(saved, HasSubstr("vlan name set br0 7 \"it's, prev: 3\"\n"));
  EXPECT_THAT(saved, HasSubstr("log level set warning\n"));
}

TEST(Save, PutsTheTestDataBackOrLeavesThemAlone)
{
  running_agent agent;
  agent.batch("init\nbridge add br0 8\nport add br0 3 a b\nbridge sysname set br0 here\n");
  agent.told({"format", "test", "br0", "--port", "77", "--vlan", "88", "--circuit-id", "x'y\n$PORT"});
  const std::string data = agent.told({"test", "dump", "br0"});
  EXPECT_THAT(agent.told({"save"}), HasSubstr("bridge sysname set br0 here\n"));
  EXPECT_EQ(agent.told({"test", "dump", "br0"}), data);
  agent.told({"explain", "br0", "3", "5"});
  agent.ctl({"format", "check", "br0"});
  EXPECT_EQ(agent.told({"test", "dump", "br0"}), data);
  const outcome saved = agent.ctl({"save", "--no-trial", "br0"});
  EXPECT_EQ(saved.status, 8);
  EXPECT_THAT(saved.out, HasSubstr("# Not known, bridge br0: sysname, location, contact\n"));
  EXPECT_THAT(saved.err, HasSubstr("port 3 of br0: device, name, type, kind"));
  EXPECT_THAT(saved.out, Not(HasSubstr("sysname set")));
}

TEST(BridgeReport, LeavesOutWhatIsNotCertain)
{
  const bridge_report report =
      bridge_report_parse(" Global data:\n port_vlan data:\n"
                          " \tPort Id: 3, dev name: 'a', port_name: 'b'c': \n"
                          " \tPort Id: many, dev name: 'a', port_name: 'b': \n"
                          " \tPort Id: 4, dev name: 'longer than sixteen', port_name: 'b': \n"
                          " port data:\n"
                          " \tPort Id: 5, dev name: 'd', port_name: 'p', CPE serial: S', CPE MAC: 00:11:22:33:44:55\n"
                          " vlan data:\n"
                          "\tVlan: 7, name: 'x', prev: 6, next: ', prev: /, next: 9\n"
                          "\tVlan: 9, name: 'y', prev: 8, next: /\n");
  EXPECT_EQ(report.ports.size(), 2u);
  EXPECT_EQ(report.ports.at(3).name, "b'c");
  EXPECT_EQ(report.ports.at(5).cpe_serial, "S");
  EXPECT_EQ(report.vlans, (std::map<uint16_t, std::string>{{7, "x', prev: 6, next: "}}));
  EXPECT_TRUE(bridge_report_parse("").ports.empty());
}

}  // namespace
