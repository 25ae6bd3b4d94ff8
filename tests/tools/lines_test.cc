// What is shown of many lines: rows chosen, sorted and cut, rates, and JSON by its schema.
#include "tests/support/files.h"
#include "tests/tools/running_agent.h"
#include "tools/pppoeiactl/agent/report.h"
#include "tools/pppoeiactl/show/text_table.h"

#include <gmock/gmock.h>

#include <fstream>
#include <sstream>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using words = std::vector<std::string>;

class ManyLines : public testing::Test {
protected:
  ManyLines()
  {
    const outcome made = agent.batch(
        "init\nbridge add br0 8\nbridge add br1 4\n"
        "port add br0 1 line1 south --type eth\nport add br0 2 line2 north --type eth\nport add br0 7 up7 uplink\n"
        "port add br1 1 line1 atm1 --type atm\nport state set br0 1 subscriber\nport trust set br0 1 untrusted\n"
        "port state set br0 7 network\nport-vlan add br0 1 100\nport-vlan add br0 1 101\nport pvc set br1 1 8 35\n"
        "format remote-id set br0 '$PORT_REM_ID'\nport remote-id set br0 2 C-2\n");
    EXPECT_EQ(made.err, "");
  }

  nlohmann::json json(words command)
  {
    command.push_back("--json");
    return agent.ctl(command).json();
  }

  // "bridge/port", in order.
  words shown(words filters)
  {
    filters.insert(filters.begin(), {"show", "lines"});
    words list;
    const nlohmann::json told = json(filters);
    for (const nlohmann::json& line : told["lines"])
      list.push_back(line["bridge"].get<std::string>() + "/" + line["port"].dump());
    return list;
  }

  running_agent agent;
};

TEST_F(ManyLines, AreChosenAndSorted)
{
  EXPECT_THAT(shown({}), ElementsAre("br0/1", "br0/2", "br0/7", "br1/1"));
  EXPECT_THAT(shown({"br1"}), ElementsAre("br1/1"));
  EXPECT_THAT(shown({"br0", "side=network"}), ElementsAre("br0/7"));
  EXPECT_THAT(shown({"trust!=untrusted", "circuit-id~th:<"}), ElementsAre("br0/2"));
  EXPECT_THAT(shown({"--sort", "name"}), ElementsAre("br1/1", "br0/2", "br0/1", "br0/7"));
  EXPECT_THAT(shown({"--sort", "port"}), ElementsAre("br0/1", "br1/1", "br0/2", "br0/7")) << "equals as they were";
  EXPECT_THAT(shown({"--sort", "side"}), ElementsAre("br0/2", "br1/1", "br0/7", "br0/1"));
  EXPECT_EQ(agent.told({"show", "lines", "br0", "remote-id=C-2", "--columns", "port,remote-id,vlans"}),
            "port  remote-id  vlans\n   2  C-2\n");
  EXPECT_EQ(agent.told({"show", "lines", "br0", "-b", "port=1"}),
            "bridge  port  name   side        trust      state\nbr0        1  south  subscriber  untrusted  on\n");
  EXPECT_EQ(agent.told({"show", "port", "br0"}), agent.told({"show", "lines", "br0", "-b"}));
  EXPECT_THAT(agent.ctl({"show", "lines", "colour=red"}).err, HasSubstr("show lines: 'colour' is no column (bridge,"));
  EXPECT_THAT(agent.ctl({"show", "lines", "--columns", "port,nam"}).err, HasSubstr("did you mean 'name'?"));
  EXPECT_EQ(agent.ctl({"show", "lines", "br5"}).status, 1);
}

// A terminal is one that "script" makes.
TEST_F(ManyLines, AreTypedAboutOnATerminal)
{
  const own_folder home;
  const std::string command =
      std::string("HOME=") + home.path + " TERM=dumb " + PPPOEIACTL + " --socket " + agent.socket();
  const outcome typed = run({"/usr/bin/script", "-qec", command, "/dev/null"},
                            "po tr g br0 1\nport trust get br0 70\nhelp bridge state\nexit\n");
  EXPECT_EQ(typed.status, 0);
  EXPECT_THAT(typed.out, HasSubstr("trust untrusted"));
  EXPECT_THAT(typed.out, HasSubstr("port 70: br0 has ports 1, 2, 7"));
  EXPECT_THAT(typed.out, HasSubstr("Default: on"));
  EXPECT_THAT(file_text(home.path + "/.pppoeiactl_history"), HasSubstr("help"));
  const std::string table = std::string(PPPOEIACTL) + " --socket " + agent.socket() + " show lines br1 -b";
  const outcome narrow = run(
      {"/usr/bin/script", "-qec",
       "stty cols 14; TERM=xterm " + table + "; NO_COLOR=1 " + table + "; TERM=dumb NO_COLOR= " + table, "/dev/null"});
  EXPECT_EQ(narrow.out, "\x1b[1mbridge  port\xe2\x80\xa6\x1b[0m\r\nbr1        1\xe2\x80\xa6\r\n"
                        "bridge  port\xe2\x80\xa6\r\nbr1        1\xe2\x80\xa6\r\n"
                        "bridge  port\xe2\x80\xa6\r\nbr1        1\xe2\x80\xa6\r\n");
}

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

TEST_F(ManyLines, AreWatchedAsJsonLines)
{
  const outcome seen = run(
      {"/bin/bash", "-c",
       std::string(PPPOEIACTL) + " --socket " + agent.socket() + " --watch 0.01 --json show lines br1 | head -n 3"});
  std::istringstream lines(seen.out);
  size_t count = 0;
  for (std::string line; std::getline(lines, line); ++count)
    EXPECT_EQ(nlohmann::json::parse(line)["lines"].size(), 1u);
  EXPECT_EQ(count, 3u);
  const std::string table = "port  dropped\n   1        0\n";
  EXPECT_EQ(run({"/bin/bash", "-c",
                 std::string(PPPOEIACTL) + " --socket " + agent.socket() +
                     " --watch 0.01 show lines br1 --columns port,dropped | head -n 5"})
                .out,
            table + "\n" + table);
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
