// What an operator is told who has made a mistake.
#include "tests/support/files.h"
#include "tests/tools/running_agent.h"
#include "tools/pppoeiactl/words/line.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using testing::HasSubstr;

std::string card_of_63_lines()
{
  std::string lines = "init\nbridge add br0 64\n";
  for (int port = 1; port < 64; ++port)
    lines += "port add br0 " + std::to_string(port) + " line 0/" + std::to_string(port) + " --type eth\n";
  return lines + "vlan add br0 100\nport-vlan add br0 1 100\n";
}

// Whether a message begins with what it is about and says it in the command's own words.
bool names_its_object(const std::string& message, const std::vector<std::string>& command)
{
  const std::string subject = message.substr(2, message.find(": ") - 2);
  return subject.size() < message.size() - 2 && std::ranges::any_of(command, [&](const std::string& word) {
           return word.size() > 1 &&
                  (message.find(word) != std::string::npos || word.find(subject) != std::string::npos);
         });
}

// "1 bridge del br7" in one line, the message in the next.
TEST(Mistakes, AreAnsweredAsInTheTable)
{
  running_agent agent;
  ASSERT_EQ(agent.batch(card_of_63_lines()).err, "");
  const std::string table = file_text(TEST_SOURCE_DIR "/tests/tools/mistakes.txt");
  std::string told;
  std::istringstream lines(table);
  size_t count = 0;
  for (std::string line, message; std::getline(lines, line) && std::getline(lines, message); ++count) {
    std::vector<std::string> typed = line_split(line);
    typed.erase(typed.begin());
    const outcome result = agent.ctl(typed);
    EXPECT_EQ(result.out, "") << line;
    told += std::to_string(result.status) + line.substr(1) + "\n  " + result.err.substr(sizeof "pppoeiactl: " - 1);
    EXPECT_TRUE(names_its_object(message, typed)) << line << message;
  }
  EXPECT_EQ(told, table);
  EXPECT_GE(count, 60u);
}

TEST(Mistakes, InFrontOfTheCommandAreToldToo)
{
  const std::string path = fresh_socket();
  const auto said = [&](std::vector<std::string> arguments) { return ctl(path, std::move(arguments)).err; };
  EXPECT_THAT(said({}), HasSubstr("no command"));
  EXPECT_THAT(said({"--nonsense"}), HasSubstr("--nonsense"));
  EXPECT_THAT(said({"-t", "0", "init"}), HasSubstr("-t: "));
  EXPECT_THAT(said({"--batch", "/nonexistent"}), HasSubstr("'/nonexistent': No such file"));
  EXPECT_THAT(said({"--batch", "/tmp"}), HasSubstr("'/tmp' is a directory"));
  EXPECT_EQ(ctl(path, {"--batch", "/tmp"}).status, 2);
  EXPECT_THAT(said({"log", "level", "get"}), HasSubstr("no agent answers on " + path));
  EXPECT_THAT(ctl(std::string(200, 's'), {"log", "level", "get"}).err, HasSubstr("too long for a socket's path"));
  EXPECT_THAT(ctl("/dev/null", {"log", "level", "get"}).err, HasSubstr("no agent answers on /dev/null"));
}

TEST(Mistakes, OfTheWrongUserAreNoMissingAgent)
{
  running_agent agent;
  chmod(agent.socket().c_str(), 0);
  std::vector<std::string> command{PPPOEIACTL, "--socket", agent.socket(), "log", "level", "get"};
  if (geteuid() == 0)  // who may all, unless that is taken away
    command.insert(command.begin(), {"/usr/bin/setpriv", "--inh-caps=-all", "--bounding-set=-all"});
  const outcome refused = run(command);
  EXPECT_EQ(refused.status, 6);
  EXPECT_THAT(refused.err, HasSubstr("no permission for " + agent.socket()));
}

TEST(Mistakes, WithoutAStateAreToldAsSuch)
{
  running_agent agent;
  EXPECT_EQ(agent.ctl({"bridge", "state", "get", "br0"}).err,
            "pppoeiactl: bridge br0: the agent is not initialised ('init' does it)\n");
  EXPECT_EQ(agent.ctl({"bridge", "add", "br0", "4"}).err,
            "pppoeiactl: bridge br0: the agent is not initialised ('init' does it)\n");
  EXPECT_EQ(agent.ctl({"fini"}).err, "pppoeiactl: node fini: the agent is not initialised ('init' does it)\n");
  agent.told({"init"});
  EXPECT_THAT(agent.ctl({"bridge", "state", "get", "br0"}).err, HasSubstr("no such bridge (there is none;"));
}

}  // namespace
