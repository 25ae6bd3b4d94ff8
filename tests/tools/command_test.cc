// pppoeiactl from the outside: how it ends, what it says, which operation a command reaches.
#include "platform/ippc/client.h"
#include "platform/ippc/server.h"
#include "pppoeia/api/table.h"
#include "tests/support/files.h"
#include "tests/tools/running_agent.h"
#include "tools/pppoeiactl/words/help.h"
#include "tools/pppoeiactl/words/line.h"
#include "tools/pppoeiactl/words/operation_words.h"

#include <gmock/gmock.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <list>
#include <sstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using words = std::vector<std::string>;

// One agent for all cases: none of them changes what another looks at.
class Command : public testing::Test {
protected:
  static void SetUpTestSuite()
  {
    agent_ = new running_agent;
    EXPECT_EQ(agent_->batch("init\nbridge add br0 8\nport add br0 3 line3 0/3 --type eth\n").status, 0);
  }
  static void TearDownTestSuite() { delete agent_; }

  static running_agent& agent() { return *agent_; }

private:
  static running_agent* agent_;
};
running_agent* Command::agent_;

TEST_F(Command, ItsStatusTellsHowItWent)
{
  EXPECT_EQ(agent().ctl({"port", "trust", "get", "br0", "3"}).status, 0);
  EXPECT_EQ(agent().ctl({"port", "trust", "get", "br0", "4"}).status, 1);
  EXPECT_EQ(agent().ctl({"port", "trust", "get", "br0"}).status, 2);
  EXPECT_EQ(ctl(fresh_socket(), {"log", "level", "get"}).status, 3);  // no agent
  EXPECT_EQ(ctl(fresh_socket(), {"-batch", "-"}, "init\n").status, 3);
}

TEST_F(Command, WaitsForAnAgentThatComesLate)
{
  const std::string path = fresh_socket();
  auto late = std::async(std::launch::async, [&] { return ctl(path, {"--wait", "60", "log", "level", "get"}).status; });
  EXPECT_EQ(ctl(path, {"--wait", "0.2", "log", "level", "get"}).status, 3);
  ASSERT_EQ(symlink(agent().socket().c_str(), path.c_str()), 0);
  EXPECT_EQ(late.get(), 0);
  unlink(path.c_str());
}

TEST_F(Command, EndsWithFourWhenNoAnswerComes)
{
  const std::string path = fresh_socket();
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, path.c_str());
  const int silent = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  ASSERT_EQ(bind(silent, reinterpret_cast<sockaddr*>(&address), sizeof address) | listen(silent, 4), 0);
  EXPECT_EQ(run({PPPOEIACTL, "--socket", path, "-t", "0.1", "log", "level", "get"}).status, 4);
  EXPECT_EQ(run({PPPOEIACTL, "--socket", path, "-t", "0.1", "bridge", "dump", "br0", "0"}).status, 4);
  close(silent);
  unlink(path.c_str());
}

TEST_F(Command, EndsWithFiveWhenTheAgentHasNoPlace)
{
  running_agent full;
  std::list<ippc::client> taken(64);
  std::vector<std::vector<unsigned char>> level{std::vector<unsigned char>(4)};
  for (ippc::client& client : taken) {
    ASSERT_TRUE(client.open(full.socket()));
    ASSERT_EQ(client.call(3, level, std::chrono::seconds(20)).error, ippc::call_error::none);
  }
  const outcome busy = full.ctl({"log", "level", "get"});
  EXPECT_EQ(busy.status, 5);
  EXPECT_THAT(busy.err, HasSubstr("is busy: all its connections are taken"));
}

TEST_F(Command, TakesItsOptionsBehindTheWordsToo)
{
  EXPECT_EQ(agent().ctl({"port", "trust", "get", "br0", "3", "--json"}).json(),
            nlohmann::json({{"version", 1}, {"trust", 0}, {"trust_name", "trusted"}}));
  EXPECT_EQ(agent().ctl({"bridge", "location", "set", "br0", "--", "--json"}).status, 0);
  EXPECT_THAT(agent().told({"format", "explain", "$LOCATION", "br0", "3", "1"}), HasSubstr("'--json'"));
}

TEST_F(Command, BatchNamesTheLineOfItsFirstErrorAndEndsUnlessForced)
{
  outcome failed = agent().batch("# a comment\n\nbridge state get br0\nport del br0 6\nnonsense\n");
  EXPECT_EQ(failed.status, 1);
  EXPECT_EQ(failed.out, "state on\n");
  EXPECT_EQ(failed.err, "standard input:4: port 6: br0 has only port 3 ('show port br0')\n");
  EXPECT_EQ(agent().batch("log level get 'open\n").err, "standard input:1: a quote is not closed\n");
  failed = ::ctl(agent().socket(), {"-force", "-batch", "-"}, "nonsense\nport del br0 6\nbridge state get br0");
  EXPECT_EQ(failed.status, 2);
  EXPECT_EQ(failed.out, "state on\n");
  EXPECT_EQ(failed.err, "standard input:1: nonsense: no such command ('help' lists them)\n"
                        "standard input:2: port 6: br0 has only port 3 ('show port br0')\n");
}

TEST(Errors, AreToldInWords)
{
  running_agent agent;
  const std::pair<std::string, const char*> lines[] = {
      {"fini", "node fini: the agent is not initialised ('init' does it)"},
      {"bridge del br0", "bridge br0: the agent is not initialised ('init' does it)"},
      {"init", nullptr},
      {"bridge add br0 8", nullptr},
      {"bridge add br0 8", "bridge br0: exists already ('show bridge br0')"},
      {"bridge add nosuch 8", "bridge nosuch: the kernel has no bridge of that name ('ls /proc/net/kvbridge')"},
      {"bridge vendor set br0 a-vendor-of-20-bytes",
       "bridge br0: vendor 'a-vendor-of-20-bytes' has 20 characters, at most 19"},
      {"bridge shelf-id set br0 0123456789012345678901234567890123456789",
       "bridge br0: shelf-id '0123456789012345678901234567890123456789' has 40 characters, at most 39"},
      {"vlan name set br0 5 x", "VLAN 5 of br0: not among the named VLANs (none; 'vlan add br0 5' makes it one)"},
      {"port add br0 9 a b", "port 9: br0 has room for ports 1 to 7 ('bridge add' gives it)"},
      {"port add br0 3 a b", nullptr},
      {R"(port remote-id set br0 3 'a\'" \x41\"b"\x42\ c)", nullptr},
      {"port remote-id get br0 3", nullptr},
      {"port pvc get br0 3", "port 3 of br0: a PVC is for ports of type atm ('port add ... --type atm')"},
      {"port state get br0 4", "port 4: br0 has only port 3 ('show port br0')"},
      {"port-vlan get br0 3 9", "port 3 VLAN 9 of br0: no such entry (VLAN entries: none; 'show port-vlan br0 3')"},
      {"test run br1 pppoeiaTestRunCid test", "bridge br1: no such bridge (bridges: br0; 'show bridge')"},
      {"show port \\", "a backslash ends the line"},
      {"show port 'x", "a quote is not closed"},
  };
  std::string batch;
  std::string expected;
  for (size_t i = 0; i < std::size(lines); ++i) {
    batch += lines[i].first + "\n";
    if (lines[i].second)
      expected += "standard input:" + std::to_string(i + 1) + ": " + lines[i].second + "\n";
  }
  const outcome told = ::ctl(agent.socket(), {"-force", "-batch", "-"}, batch);
  EXPECT_EQ(told.err, expected);
  EXPECT_EQ(told.out, "remote-id 'a\\ A\"bB c'\n");
}

// What people read: the settings of a card, and behind each command what it says.
TEST(Reports, ReadAsInTheTranscript)
{
  const std::string transcript = file_text(TEST_SOURCE_DIR "/tests/tools/transcript.txt");
  std::string told = transcript.substr(0, transcript.find("\n\n") + 2);
  running_agent agent;
  EXPECT_EQ(agent.batch(told).err, "");
  std::istringstream lines(transcript);
  for (std::string line; std::getline(lines, line);)
    if (line.starts_with("$ ")) {
      const outcome result = agent.batch(line.substr(2) + "\n");
      told += line + "\n" + result.out + result.err;
    }
  EXPECT_EQ(told, transcript);
}

TEST_F(Command, JsonHoldsAnyBytes)
{
  std::string text;
  for (int byte = 1; byte < 40; ++byte)
    text += static_cast<char>(byte * 13 / 2);
  ASSERT_EQ(agent().ctl({"port", "remote-id", "set", "br0", "3", "--", text}).status, 0);
  const nlohmann::json told = agent().ctl({"--json", "port", "remote-id", "get", "br0", "3"}).json();
  std::string back;
  std::istringstream hex(told["remote-id_hex"].get<std::string>());
  for (char pair[3] = {}; hex.read(pair, 2);)
    back += static_cast<char>(std::stoi(pair, nullptr, 16));
  EXPECT_EQ(back, text);
  const std::vector<words> commands = {{"show"},
                                       {"save"},
                                       {"explain", "br0", "3", "5"},
                                       {"format", "check", "br0"},
                                       {"test", "dump", "br0"},
                                       {"format", "explain", "\377$d\376CLNT_MAC", "br0", "3", "5"},
                                       {"format", "test", "br0", "--circuit-id", text},
                                       {"bridge", "dump", "br0", "0"}};
  for (words command : commands) {
    command.insert(command.begin(), "--json");
    EXPECT_NO_THROW(agent().ctl(command).json()) << testing::PrintToString(command);
  }
}

TEST(Json, HasOneShapeHoweverManyThereAre)
{
  running_agent agent;
  const auto json = [&](words command) {
    command.insert(command.begin(), "--json");
    return agent.ctl(command).json();
  };
  EXPECT_EQ(json({"show"})["bridges"], nlohmann::json::array());
  EXPECT_EQ(json({"show", "bridge"})["bridges"], nlohmann::json::array());
  agent.batch("init\nbridge add br0 8\n");
  EXPECT_EQ(json({"show", "port", "br0"})["ports"], nlohmann::json::array());
  EXPECT_EQ(json({"show", "lines"})["lines"], nlohmann::json::array());
  EXPECT_EQ(json({"format", "check", "br0"})["findings"], nlohmann::json::array());
  agent.batch("port add br0 3 line3 0/3\n");
  EXPECT_EQ(json({"show", "port", "br0"})["ports"].size(), 1u);
  EXPECT_EQ(json({"show", "port-vlan", "br0", "3"})["port-vlans"], nlohmann::json::array());
  agent.batch("port add br0 4 line4 0/4\nport-vlan add br0 3 7\nbridge vlan set br0 9 on\n");
  EXPECT_EQ(json({"show", "port", "br0"})["ports"].size(), 2u);
  EXPECT_EQ(json({"show", "port-vlan", "br0", "3"})["port-vlans"][0]["vlan"], 7);
  EXPECT_THAT(json({"show"})["bridges"][0]["vlans"].get<std::vector<int>>(), testing::Contains(9));
  EXPECT_EQ(json({"show"})["bridges"][0]["ports"][1]["port-vlans"], nlohmann::json::array());
}

TEST(Json, LongReportsArriveWhole)
{
  running_agent agent;
  std::string lines = "init\nbridge add br0 8\n";
  for (int port = 1; port < 8; ++port) {
    lines += "port add br0 " + std::to_string(port) + " a b\n";
    for (int vlan = 0; vlan < 100; ++vlan)
      lines += "port-vlan remote-id-format set br0 " + std::to_string(port) + " " + std::to_string(vlan) + " " +
               std::string(100, 'x') + "\n";
  }
  ASSERT_EQ(agent.batch(lines + "vlan add br0 4094\n").status, 0);
  const std::string report = agent.told({"bridge", "dump", "br0", "0"});
  EXPECT_GT(report.size(), 100'000u);  // more than terminals and pipes hold
  EXPECT_TRUE(report.ends_with(" vlan data:\n\tVlan: 4094, name: '', prev: /, next: /\n"));
}

// Calls that came in, in their order.
std::vector<uint16_t> called;
std::vector<size_t> counts;

int32_t record(ippcFuncData* request)
{
  called.push_back(request->functionId);
  counts.push_back(request->argCount);
  const int32_t result = 0;
  return ippcFuncDataAddRetVal(request, &result, sizeof result);
}

std::string sample(const api::argument& argument)
{
  if (argument.what == api::kind::mac)
    return " 00:11:22:33:44:55";
  const bool left_out = api::is_output(argument.what) || argument.what == api::kind::tty ||
                        argument.what == api::kind::port_info || argument.what == api::kind::name_update;
  return left_out ? "" : " 1";
}

TEST(Commands, ReachEveryOperationByItsWordsAndItsNumber)
{
  const std::string path = fresh_socket();
  std::string by_words;
  std::string by_number;
  for (const api::operation& operation : api::operations) {
    std::string arguments;
    for (const api::argument& argument : operation.arguments())
      arguments += sample(argument);
    by_words += std::string(operation.command) + arguments + (operation.id == 0 ? " --force\n" : "\n");
    by_number += "call " + std::to_string(operation.id) + arguments + "\n";
  }
  outcome result;
  {
    ippc::server server(path, record);
    ASSERT_EQ(server.start(), 0);
    result = ctl(path, {"-batch", "-"}, by_words + by_number);
  }
  EXPECT_EQ(result.status, 0) << result.err;
  size_t reached = 0;
  for (size_t i = 0; i < called.size(); ++i) {
    const api::operation& operation = api::operations[called[i]];
    EXPECT_EQ(counts[i], operation.argument_count);
    if (operation.id == reached % api::operations.size())
      ++reached;
    else
      EXPECT_TRUE(operation.name.ends_with("_get")) << operation.name;  // before something is added: is it there?
  }
  EXPECT_EQ(reached, 2 * api::operations.size());
}

// A text as the manual page's macros hold it.
std::string in_manual(std::string_view text)
{
  std::string escaped;
  for (const char c : text)
    escaped += c == '-' ? "\\-" : std::string(1, c);
  return escaped;
}

TEST(Commands, AreListedAsDocumented)
{
  const std::string text = file_text(TEST_SOURCE_DIR "/docs/ippc.md");
  constexpr std::string_view mark = "<!-- operations -->\n";
  const size_t at = text.find(mark);
  ASSERT_NE(at, std::string::npos);
  EXPECT_EQ(text.substr(at + mark.size()), run({PPPOEIACTL, "--operations-table"}).out);
  const std::string manual = run({PPPOEIACTL, "--man"}).out;
  for (const api::operation& operation : api::operations) {
    const std::string force = operation.id == 0 ? " [--force]" : "";  // the tool's own
    EXPECT_THAT(help_text(line_split(operation.command)), HasSubstr(operation_usage(operation) + force + "\n"));
    EXPECT_THAT(manual, HasSubstr("\n" + in_manual(operation.summary) + ".\n"));
  }
}

// "bridge state" and "on" from "| `bridge state` | `on` | ..."; empty texts for other lines.
std::pair<std::string, std::string> documented_default(const std::string& line)
{
  constexpr std::string_view begin = "| `";
  constexpr std::string_view between = "` | `";
  const size_t setting_end = line.find(between);
  const size_t value_begin = setting_end + between.size();
  if (!line.starts_with(begin) || setting_end == std::string::npos || line.find('`') + 1 != begin.size() ||
      line.find("` |", value_begin) == std::string::npos)
    return {};
  return {line.substr(begin.size(), setting_end - begin.size()),
          line.substr(value_begin, line.find("` |", value_begin) - value_begin)};
}

TEST(Commands, TellTheDocumentedDefaults)
{
  running_agent agent;
  agent.batch("init\nbridge add br0 4\nport add br0 1 line1 0/1 --type eth\n");
  std::ifstream page(TEST_SOURCE_DIR "/docs/configuration.md");
  size_t told = 0;
  for (std::string line; std::getline(page, line);) {
    const auto [setting, value] = documented_default(line);
    if (setting.find(' ') == std::string::npos)
      continue;  // no setting, but a value
    const bool of_port = setting.starts_with("port ");
    const bool of_node = setting.starts_with("log ") || setting.starts_with("node ");
    const outcome result = agent.batch(setting + " get" + (of_node ? "" : of_port ? " br0 1" : " br0") + "\n");
    EXPECT_EQ(result.status, 0) << setting << result.err;
    const std::string shown = result.out.substr(result.out.find(' ') + 1);
    EXPECT_TRUE(shown == value + "\n" || shown == "'" + value + "'\n") << setting << ": " << shown;
    EXPECT_THAT(help_text(line_split(setting + " set")), HasSubstr("    Default: " + value + "\n"));
    ++told;
  }
  EXPECT_GE(told, 15u);
}

// With nothing to complain of.
constexpr char example_card[] = R"(init
bridge add br0 65
bridge vlan set br0 100 on
bridge vlan set br0 200 on
port add br0 1 uplink up --kind 1
port state set br0 1 network
port add br0 3 line3 0/3 --type atm
port trust set br0 3 untrusted
port state set br0 3 subscriber
vlan add br0 100
port-vlan circuit-id-mode set br0 3 100 ethernet
port-vlan circuit-id-mode set br0 3 200 ethernet
format remote-id set br0 $PORT
)";

// What an example needs to be there.
std::string before_example(const std::string& command)
{
  if (command == "init")
    return "";
  if (command == "bridge add")
    return "init\n";
  return command == "confirm" ? "init\napply --confirm 600 card.conf\n" : example_card;
}

TEST(Commands, RunAsTheirExamplesSay)
{
  running_agent agent;
  const own_folder folder;
  const auto former = std::filesystem::current_path();
  std::filesystem::current_path(folder.path);
  std::ofstream("card.conf") << example_card;
  for (const command_row& command : command_table()) {
    if (command.words == "lines" || command.words == "monitor")
      continue;  // of the status socket, which this agent has not
    const outcome result = agent.batch(before_example(command.words) + command.example + "\n");
    EXPECT_EQ(result.status, 0) << command.example << result.err;
    EXPECT_EQ(result.err, "");
    agent.batch("fini\n");
  }
  std::filesystem::current_path(former);
}

TEST_F(Command, TakesWordsCutShortAndAnythingBehindTwoDashes)
{
  EXPECT_EQ(agent().told({"po", "tr", "g", "br0", "3"}), agent().told({"port", "trust", "get", "br0", "3"}));
  EXPECT_EQ(agent().told({"po", "sh", "br0", "3"}), agent().told({"show", "port", "br0", "3"}));
  EXPECT_THAT(agent().ctl({"bridge", "de"}).err, HasSubstr("bridge de: may be debug, defaults, del"));
  EXPECT_THAT(agent().told({"format", "explain", "--", "-h"}), HasSubstr("'-h'  text"));
  EXPECT_EQ(agent().ctl({"show", "port", "--", "br0", "3"}).status, 0);
  EXPECT_THAT(run({PPPOEIACTL, "--version"}).out, testing::StartsWith("pppoeiactl "));
  EXPECT_EQ(run({PPPOEIACTL, "bri", "state", "--help"}).out, help_text({"bridge", "state"}));
  EXPECT_EQ(run({PPPOEIACTL, "nonsense", "--help"}).status, 2);
}

TEST(Warnings, AreForValuesThatMeanNothing)
{
  running_agent agent;
  agent.batch("init\nbridge add br0 8\nport add br0 3 line3 0/3\n");
  const std::pair<const char*, const char*> warned[] = {
      {"port circuit-id-mode set br0 3 9", "mode: '9' means nothing (unset, ethernet, atm, custom)"},
      {"log level set 9", "level: '9' means nothing"},
      {"bridge max-pdu set br0 0", "max-pdu: '0' leaves room for no PADI"},
      {"bridge vlan set br0 5000 on", "vlan: '5000' acts on VLAN 904"},
      {"port-vlan add br0 3 5000", "vlan: '5000' is the VLAN of no frame"},
      {"port add br0 4 line4 012345678901234", "port-name: '012345678901234' is cut to '01234567890123'"},
      {"port add br0 5 01234567890123456 0/5", "device: '01234567890123456' is cut to '0123456789012345'"},
      {"port description set br0 3 01234567890123456789012345678901234567890123456789012345678901234", "is cut to"},
      {"bridge add br1 1", "ports: '1' leaves room for no port"},
  };
  for (const auto& [command, warning] : warned) {
    const outcome result = agent.batch(std::string(command) + "\n");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err, HasSubstr(std::string("standard input:1: warning: "))) << command;
    EXPECT_THAT(result.err, HasSubstr(warning));
  }
  EXPECT_EQ(agent.ctl({"log", "level", "set", "9", "--force"}).err, "");
  EXPECT_EQ(agent.ctl({"port", "circuit-id-mode", "set", "br0", "3", "unset"}).err, "");
  EXPECT_EQ(agent.told({"log", "level", "get"}), "log-level 9\n");  // all were taken
}

// What a shell would offer for the last word.
words offered(const running_agent& agent, words line)
{
  line.insert(line.begin(), {PPPOEIACTL, "--complete", "--socket", agent.socket()});
  words found;
  std::istringstream out(run(line).out);
  for (std::string word; std::getline(out, word);)
    found.push_back(word);
  return found;
}

TEST(Completion, OffersWordsValuesAndWhatTheAgentHas)
{
  running_agent agent;
  agent.batch(
      "init\nbridge add br0 8\nbridge add br3 8\nport add br3 2 a b\nport add br3 5 a b\nport-vlan add br3 5 77\n");
  EXPECT_THAT(offered(agent, {"br"}), ElementsAre("bridge"));
  EXPECT_THAT(offered(agent, {"bridge", "max-pdu", ""}), ElementsAre("get", "set"));
  EXPECT_THAT(offered(agent, {"show", "port", ""}), ElementsAre("br0", "br3"));
  EXPECT_THAT(offered(agent, {"port", "state", "set", "br3", ""}), ElementsAre("2", "5"));
  EXPECT_THAT(offered(agent, {"port", "state", "set", "br3", "5", "n"}), ElementsAre("network"));
  EXPECT_THAT(offered(agent, {"explain", "br3", "5", ""}), ElementsAre("77"));
  EXPECT_THAT(offered(agent, {"explain", "br3", "5", "77", ""}), ElementsAre());
  EXPECT_THAT(offered(agent, {"save", "br0", ""}), ElementsAre("br0", "br3"));
  EXPECT_THAT(offered(agent, {"port-vlan", "get", "br3", "5", ""}), ElementsAre("77"));
  EXPECT_THAT(offered(agent, {"port-vlan", "get", "br3", ""}), ElementsAre("2", "5"));
  EXPECT_THAT(offered(agent, {"format", "explain", "$PORT", "br3", ""}), ElementsAre("2", "5"));
  EXPECT_THAT(offered(agent, {"format", "explain", "$PORT", "br3", "5", ""}), ElementsAre("77"));
  EXPECT_THAT(offered(agent, {"format", "test", "--mode", "test", "br3", "--debug", ""}), ElementsAre("off", "on"));
  EXPECT_THAT(offered(agent, {"format", "test", "br3", "--mode", "a"}), ElementsAre("available"));
  EXPECT_THAT(offered(agent, {"port", "add", "br3", "6", "x", "y", "--p"}), ElementsAre("--parent"));
  EXPECT_THAT(offered(agent, {"port", "add", "br3", "6", "x", "y", "--"}),
              ElementsAre("--type", "--kind", "--parent", "--location"));
  EXPECT_THAT(offered(agent, {"port", "add", "br3", "6", "x", "y", "--type", ""}),
              ElementsAre("eth", "atm", "onu", "gem"));
  EXPECT_THAT(offered(agent, {"port", "add", "br3", "6", "x", "y", "--location", "p"}),
              ElementsAre("panel-kind=", "panel=", "pvc="));
  EXPECT_THAT(offered(agent, {"port", "add", "br3", "6", "x", "y", "--parent", ""}), ElementsAre("2", "5"));
  EXPECT_THAT(offered(agent, {"port", "add", "br3", ""}), ElementsAre());
  EXPECT_THAT(offered(agent, {"test", "run", "br3", ""}), ElementsAre("pppoeiaTestRunCid", "pppoeiaTestRunRid"));
  EXPECT_THAT(offered(agent, {"test", "run", "br3", "pppoeiaTestRunCid", ""}), ElementsAre("test", "available"));
  EXPECT_THAT(offered(agent, {"test", "set", "br3", "pppoeiaTestSetC"}),
              ElementsAre("pppoeiaTestSetCvid", "pppoeiaTestSetClntMac", "pppoeiaTestSetCustomCidStr",
                          "pppoeiaTestSetCustomRidStr"));
  EXPECT_THAT(offered(agent, {"format", "test", "br3", "--debug", ""}), ElementsAre("off", "on"));
  EXPECT_THAT(offered(agent, {"format", "test", "br3", "--port", ""}), ElementsAre("2", "5"));
  EXPECT_THAT(offered(agent, {"bridge", "dump", "br3", "0", "--"}), ElementsAre("--tty"));
  EXPECT_THAT(offered(agent, {"--ba"}), ElementsAre());
  EXPECT_THAT(offered(agent, {"-b"}), ElementsAre("-batch"));
  EXPECT_THAT(offered(agent, {"nonsense", ""}), ElementsAre());
  EXPECT_THAT(offered(agent, {"show", "port", "--json", ""}), ElementsAre("br0", "br3"));
}

// Bridges of any name are known by their devices and by their files.
TEST(Completion, FindsBridgesOfAnyName)
{
  running_agent agent;
  agent.batch("init\nbridge add br11 8\nbridge add br3 8\nbridge add access 8\nbridge add gate 8\n"
              "bridge add hidden 8\n");
  EXPECT_THAT(offered(agent, {"show", "port", ""}), ElementsAre("br3", "br11"));
  if (geteuid() != 0)
    GTEST_SKIP() << "needs root";
  const own_folder files;
  // In a chroot the root is no mount point that could be made private, /proc is one everywhere.
  const std::string script = "mount --make-rprivate /proc; mkdir -p " + files.path + "/kvbridge/gate; mount --bind " +
                             files.path +
                             " /proc/$$/net; ip link add access_pppoe type veth peer name hidden_other; "
                             "exec " PPPOEIACTL " --complete --socket " +
                             agent.socket() + " show port ''";
  EXPECT_EQ(run({"/usr/bin/unshare", "--net", "--mount", "--propagation", "unchanged", "sh", "-c", script}).out,
            "br3\nbr11\ngate\naccess\n");
}

TEST(Completion, WorksInBash)
{
  running_agent agent;
  agent.batch("init\nbridge add br0 8\n");
  const std::string script = "source " TEST_SOURCE_DIR "/tools/pppoeiactl/completion/pppoeiactl.bash\n"
                             "COMP_WORDS=(" PPPOEIACTL " --socket " +
                             agent.socket() +
                             " bridge state set b) COMP_CWORD=6\n_pppoeiactl\necho \"${COMPREPLY[*]}\"";
  EXPECT_EQ(run({"/bin/bash", "-c", script}).out, "br0\n");
}

}  // namespace
