// The framework as a whole: bllhost with the example plug-ins, a real port mapper, real RPC clients, and what the
// system log received.
#include "tests/support/files.h"
#include "tests/system/node_test.h"
#include "tools/bllhost/port_mapper.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <memory>

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

constexpr char started[] = "Starting procedure has been completed.";

class FrameworkHost : public node_test {
protected:
  void SetUp() override
  {
    node_test::SetUp();
    std::filesystem::remove(work + "/saved.xml");
    std::ofstream(work + "/board") << "BOARD_BT5\n";
    setenv("BLL_BOARD_ID", (work + "/board").c_str(), 1);
    setenv("BLL_CONFIG", PLUGIN_EXAMPLES "/plugin-hello/bll_config.xml", 1);
    setenv("BLL_LIB_DIR", PLUGIN_OUTPUT "/lib", 1);
  }

  void startHost(const std::vector<std::string>& options = {})
  {
    std::vector<std::string> command{PROGRAMS "/bllhost", "--save", work + "/saved.xml"};
    command.insert(command.end(), options.begin(), options.end());
    host = std::make_unique<background>(command);
  }
  bool servesMessages() const
  {
    return wait_until([this] { return host->output().find("main RPC loop") != std::string::npos; });
  }
  // Entities are up, and messages are served.
  bool isUp() const { return node.wait_for_log(started) && servesMessages(); }
  static std::pair<int, std::string> send(const std::string& arguments) { return run("bllmsg " + arguments); }
  // The lines without thread stamps; without blank ones, and what the service's thread says at any time.
  static std::string log()
  {
    std::string all;
    for (const std::string& line : node.logged()) {
      const std::string text = line.substr(std::min(line.find("] ") + 2, line.size()));
      all += text == "\n" || text.find("thread registered") != std::string::npos ? "" : text;
    }
    return all;
  }

  std::unique_ptr<background> host;
};

TEST_F(FrameworkHost, StartsInOrderServesAndStopsInReverse)
{
  const auto mapper = port_mapper();
  startHost();
  ASSERT_TRUE(isUp()) << host->output();
  EXPECT_THAT(log(), ContainsRegex("Hello, world.\ndepends is up, after hello.\n<<< Starting"));

  for (const std::string transport : {"udp", "tcp"})
    EXPECT_EQ(run("rpcinfo -T " + transport + " 127.0.0.1 536870935 1").first, 0) << transport;
  EXPECT_TRUE(mapper_knows_us()) << "the host has nothing to complain of";
  EXPECT_EQ(send("depends"), std::make_pair(0, std::string("started 1 times\n")));
  EXPECT_THAT(send("--tcp threads show").second, HasSubstr(" | BLLManager_mng\n"));
  EXPECT_EQ(send("lockingPeriod x").first, 1) << "what a subscriber throws is a refusal";
  EXPECT_EQ(send("depends --tty /nowhere/at/all").first, 1);
  EXPECT_EQ(send("").first, 2);
  log();

  EXPECT_EQ(host->end(), 0);
  EXPECT_TRUE(node.wait_for_log("Good-bye"));
  EXPECT_THAT(log(), ContainsRegex("depends is down, before hello.\nGood-bye, world.\n"));
  EXPECT_THAT(file_text(work + "/saved.xml"), ContainsRegex("<hello.*\n.*<depends>"));
  EXPECT_EQ(send("depends").first, 3) << "nobody serves it any more";
}

TEST_F(FrameworkHost, ServesThoseWhomItIsToldBesideRoot)
{
  EXPECT_EQ(run("bllhost --allow-user no-such-user").first, 2);
  std::filesystem::copy(PROGRAMS "/bllmsg", work);
  const auto sendAs = [](const char* user) {
    return run(std::string("setpriv --clear-groups --regid nogroup --reuid ") + user + " " + work +
               "/bllmsg --tty /dev/null depends");
  };
  const auto mapper = port_mapper();
  startHost({"--allow-user", "nogroup", "--allow-user", "bin"});
  ASSERT_TRUE(isUp()) << host->output();
  EXPECT_EQ(sendAs("root").first, 0);
  EXPECT_EQ(sendAs("nobody").first, 0) << "of that group in the user database";
  EXPECT_EQ(sendAs("bin").first, 0);
  const auto [status, text] = sendAs("daemon");
  EXPECT_EQ(status, 1) << "the group that a process gives itself does not count";
  EXPECT_THAT(text, HasSubstr("bllmsg: not allowed: "));
  EXPECT_TRUE(node.wait_for_log("RPC call to program 536870935, procedure 1, by user 1 refused"));
  EXPECT_EQ(host->end(), 0);
}

TEST_F(FrameworkHost, TheGuidesPluginKeepsItsSetting)
{
  setenv("BLL_CONFIG", PLUGIN_OUTPUT "/page/bll_config.xml", 1);
  const auto mapper = port_mapper();
  startHost();
  ASSERT_TRUE(isUp()) << host->output();
  EXPECT_THAT(log(), HasSubstr("Hello, world.\n"));
  EXPECT_EQ(send("greet Ada"), std::make_pair(0, std::string("Nice to meet you, Ada.\n")));
  EXPECT_EQ(host->end(), 0);
  log();
  startHost();
  ASSERT_TRUE(isUp()) << host->output();
  EXPECT_THAT(log(), HasSubstr("Hello, Ada.\n"));
  EXPECT_EQ(host->end(), 0);
}

TEST_F(FrameworkHost, AFailureRollsBackAndEndsTheHost)
{
  setenv("DEPENDS_FAILS", "1", 1);
  startHost();
  EXPECT_EQ(host->wait(), 1) << host->output();
  unsetenv("DEPENDS_FAILS");
  EXPECT_TRUE(node.wait_for_log("Good-bye"));
  EXPECT_THAT(log(), ContainsRegex("Hello, world.\nError starting depends BLE.\nWill start stop procedure.\n"
                                   "Good-bye, world.\n"));
}

TEST_F(FrameworkHost, LivesWithoutAPortMapper)
{
  startHost();
  ASSERT_TRUE(isUp()) << host->output();
  EXPECT_THAT(host->output(), ContainsRegex("Cannot register UDP RPC service 0x20000017/536870935, version 1.\n"
                                            ".*Cannot register TCP RPC service 0x20000017/536870935, version 1.\n"));
  EXPECT_TRUE(node.wait_for_log("nobody can reach it by messages"));
  const auto mapper = port_mapper();
  EXPECT_THAT(send("depends").second, HasSubstr("Program not registered")) << "too late: it registers once";
  EXPECT_EQ(host->end(), 0);
}

TEST_F(FrameworkHost, StartsAndEndsWhileTheLogDaemonIsStopped)
{
  node.hold_log(true);
  startHost();
  EXPECT_TRUE(servesMessages());
  EXPECT_EQ(host->end(), 0);
  EXPECT_THAT(host->output(), ContainsRegex("[0-9]+ messages lost.\n"));
}

}  // namespace
