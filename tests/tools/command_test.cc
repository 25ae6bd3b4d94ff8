// pppoeiactl from the outside: how it ends, what it says, which operation a command reaches.
#include "platform/ippc/client.h"
#include "platform/ippc/server.h"
#include "pppoeia/api/table.h"
#include "tests/support/files.h"
#include "tests/tools/running_agent.h"
#include "tools/agent_client/agent_client.h"
#include "tools/pppoeiactl/words/help.h"
#include "tools/pppoeiactl/words/line.h"
#include "tools/pppoeiactl/words/operation_words.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <list>
#include <sstream>
#include <sys/resource.h>
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

std::atomic<int32_t> refused_with;  // by an agent that refuses all

int32_t refuse_all(ippcFuncData* request)
{
  const int32_t result = refused_with;
  return ippcFuncDataAddRetVal(request, &result, sizeof result);
}

// "-19 pppoeia_port_trust_get port trust get br0 1" in one line; what a program and what a person is told, in the next.
TEST(Refusals, AreToldAsInTheTable)
{
  const std::string path = fresh_socket();
  ippc::server server(path, refuse_all);
  ASSERT_EQ(server.start(), 0);
  std::istringstream lines(file_text(TEST_SOURCE_DIR "/tests/tools/refusals.txt"));
  std::string told;
  for (std::string line, skipped; std::getline(lines, line) && std::getline(lines, skipped);) {
    words command = line_split(line);
    refused_with = std::stoi(command[0]);
    const std::string operation = command[1];
    command.erase(command.begin(), command.begin() + 2);
    told += line + "\n  " + agent_client::error_text(operation, refused_with) + "; " + ctl(path, command).err;
  }
  unlink((path + ".known").c_str());
  expect_as_written(told, "refusals.txt");
}

TEST_F(Command, EndsWithSixForTheWrongUser)
{
  running_agent agent;
  chmod(agent.socket().c_str(), 0);
  words command{PPPOEIACTL, "--socket", agent.socket(), "log", "level", "get"};
  if (geteuid() == 0)  // who may all, unless that is taken away
    command.insert(command.begin(), {"/usr/bin/setpriv", "--inh-caps=-all", "--bounding-set=-all"});
  const outcome refused = run(command);
  EXPECT_EQ(refused.status, 6);
  EXPECT_THAT(refused.err, HasSubstr("no permission for " + agent.socket()));
}

TEST(Commands, AreListedAsDocumented)
{
  const std::string text = file_text(TEST_SOURCE_DIR "/docs/ippc.md");
  constexpr std::string_view mark = "<!-- operations -->\n";
  const size_t at = text.find(mark);
  ASSERT_NE(at, std::string::npos);
  EXPECT_EQ(text.substr(at + mark.size()), run({PPPOEIACTL, "--operations-table"}).out);
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

TEST(Commands, TellThatTheAgentWroteNoReport)
{
  running_agent agent;
  agent.batch("init\nbridge add br0 4\nport add br0 1 line1 1\n");
  const rlimit none{};
  for (const auto limit : {RLIMIT_FSIZE, RLIMIT_CORE})
    ASSERT_EQ(prlimit(agent.pid(), limit, &none, nullptr), 0);
  for (const words& asked : {words{"save"}, {"explain", "br0", "1", "7"}}) {
    const outcome told = agent.ctl(asked);
    EXPECT_EQ(std::pair(told.status, told.err),
              std::pair(1, std::string("pppoeiactl: the agent wrote no report: its log says why\n")))
        << asked[0];
  }
}

// Neither is a text that is free taken for a VLAN, nor a VLAN's number for a bridge of that name.
TEST(Completion, OffersVlansWhereOneIsMeant)
{
  running_agent agent;
  agent.batch("init\nbridge add 5 8\nport add 5 5 name text\nport-vlan add 5 5 7\n");
  EXPECT_THAT(offered(agent, {"port-vlan", "get", "5", "5", ""}), ElementsAre("7"));
  EXPECT_THAT(offered(agent, {"vlan", "name", "set", "5", "5", ""}), ElementsAre());
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

}  // namespace
