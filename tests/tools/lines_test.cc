// Tables as wide as a terminal, rates, and JSON by its schema.
#include "tests/tools/running_agent.h"
#include "tools/pppoeiactl/agent/report.h"
#include "tools/pppoeiactl/show/text_table.h"

#include <gtest/gtest.h>

namespace {

using words = std::vector<std::string>;

class ManyLines : public testing::Test {
protected:
  ManyLines()
  {
    const outcome made = agent.batch(
        "init\nbridge add br0 8\nbridge add br1 4\nport add br0 1 line1 south --type eth\nport add br0 2 line2 north\n"
        "port add br1 1 line1 atm1 --type atm\nport trust set br0 1 untrusted\nport-vlan add br0 1 100\n");
    EXPECT_EQ(made.err, "");
  }

  nlohmann::json json(words command)
  {
    command.push_back("--json");
    return agent.ctl(command).json();
  }

  running_agent agent;
};

TEST(TextTable, IsNoWiderThanTheTerminal)
{
  text_table table({{"port", true, false}, {"circuit-id", false, true}, {"name", false, true}});
  table.add({"1", "a text of twenty-six chars", "short"}, true);
  EXPECT_EQ(table.text(0, false), "port  circuit-id                  name\n   1  a text of twenty-six chars  short\n");
  EXPECT_EQ(table.text(39, false), table.text(0, false));
  EXPECT_EQ(table.text(38, false),
            "port  circuit-id                 name\n   1  a text of twenty-six cha\xe2\x80\xa6  short\n");
  EXPECT_EQ(table.text(29, false), "port  circuit-id        name\n   1  a text of twent\xe2\x80\xa6  short\n");
  EXPECT_EQ(table.text(21, false), "port  circuit\xe2\x80\xa6  name\n   1  a text \xe2\x80\xa6  short\n")
      << "the narrowest";
  EXPECT_EQ(table.text(20, false), "port  circuit\xe2\x80\xa6\xe2\x80\xa6\n   1  a text \xe2\x80\xa6\xe2\x80\xa6\n");
  EXPECT_EQ(table.text(14, false), "port  circuit\xe2\x80\xa6\n   1  a text \xe2\x80\xa6\n");
  EXPECT_EQ(table.text(13, false), "port\xe2\x80\xa6\n   1\xe2\x80\xa6\n");
  table.add({"22", "", ""}, false);
  EXPECT_EQ(table.text(4, true), "\x1b[1mport\x1b[0m\n\x1b[31m   1\x1b[0m\n  22\n");
}

TEST(Watch, TellsWhatChangedASecond)
{
  watch rounds;
  const watch::clock::time_point begin = watch::clock::now();
  rounds.round(begin);
  EXPECT_EQ(rounds.rate("padi", 100), "");
  rounds.round(begin + std::chrono::seconds(2));
  EXPECT_EQ(rounds.rate("padi", 106), " +3/s");
  EXPECT_EQ(rounds.rate("padr", 7), "");
  rounds.round(begin + std::chrono::seconds(4));
  EXPECT_EQ(rounds.rate("padi", 106), "");
  EXPECT_EQ(rounds.rate("padr", 3), "");  // reset meanwhile
}

// Everything that --json prints, one "definition<TAB>document" a line, goes to a validator.
TEST_F(ManyLines, HaveJsonAsItsSchemaSays)
{
  const std::pair<const char*, words> documents[] = {
      {"show", {"show"}},
      {"bridges", {"show", "bridge"}},
      {"bridge", {"show", "bridge", "br0"}},
      {"vlans", {"show", "vlan", "br0"}},
      {"ports", {"show", "port", "br0"}},
      {"port", {"show", "port", "br0", "2"}},
      {"port", {"show", "port", "br1", "1"}},
      {"port-vlans", {"show", "port-vlan", "br0", "1"}},
      {"lines", {"show", "lines"}},
      {"explain", {"explain", "br0", "1", "100"}},
      {"explain", {"explain", "br1", "1", "none"}},
      {"format-explain", {"format", "explain", "$PORT x"}},
      {"format-explain", {"format", "explain", "$PORT x", "br0", "1", "7"}},
      {"format-check", {"format", "check", "br0"}},
      {"save", {"save"}},
      {"check", {"check", TEST_SOURCE_DIR "/examples/demo-card.batch"}},
      {"plan", {"diff", TEST_SOURCE_DIR "/examples/demo-card.batch"}},
      {"report", {"test", "dump", "br0"}},
      {"counters", {"port", "stats", "get", "br0", "1"}},
      {"port-vlan", {"port-vlan", "get", "br0", "1", "100"}},
      {"setting", {"port", "circuit-id-mode", "get", "br0", "1"}},
      {"setting", {"log", "level", "get"}},
      {"setting", {"port", "remote-id", "get", "br0", "1"}},
  };
  std::string lines;
  for (const auto& [definition, command] : documents)
    lines += std::string(definition) + "\t" + json(command).dump() + "\n";
  lines += "!setting\t{\"version\": 2, \"mode\": 1}\n!lines\t{\"version\": 1}\n";  // these must not pass
  const outcome checked = run({"/usr/bin/python3", TEST_SOURCE_DIR "/tests/tools/check_schema.py",
                               TEST_SOURCE_DIR "/docs/pppoeiactl.schema.json"},
                              lines);
  EXPECT_EQ(checked.status, 0) << checked.out << checked.err;
}

}  // namespace
