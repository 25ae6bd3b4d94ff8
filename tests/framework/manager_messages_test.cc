// Operators' messages and the manager's events.
#include "tests/framework/manager_support.h"

#include "base/caller.h"
#include "rte/BLL/core/manager/messages.h"
#include "rte/BLL/core/self_debugger.h"
#include "tests/support/files.h"
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>

namespace {

using namespace manager_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ManagerMessages : public ManagerTest {
protected:
  void SetUp() override
  {
    manager();
    logged();
  }
  std::string reply(const std::string& message, const std::string& value)
  {
    std::ostringstream out;
    manager().onExternalMessage(message, value, out);
    return out.str();
  }
  void answerWith(const std::string& text)
  {
    manager().externalMessageSubscribers.emplace_back(
        [text](const std::string&, const std::string&, std::ostringstream& out, const std::string&) { out << text; });
  }
};

TEST_F(ManagerMessages, SwitchesAndTheirWrongValues)
{
  EXPECT_EQ(reply("lockDebug", "on"), "");
  EXPECT_TRUE(BLLManager::lockDebug);
  reply("lockDebug", "off");
  EXPECT_FALSE(BLLManager::lockDebug);
  reply("lockDebug", "perhaps");
  reply("reportBacktraces", "perhaps");
  EXPECT_THAT(logged(),
              ElementsAre("Warning: BLL Manager has received the message <lockDebug> with wrong value <perhaps>.\n",
                          "bllmsg: invalid message: reportBacktraces perhaps\n"));
  reply("reportBacktraces", "on");
  EXPECT_TRUE(singleton<SelfDebugger>::instance().areBacktraceReportsEnabled());
  reply("reportBacktraces", "off");
  EXPECT_FALSE(singleton<SelfDebugger>::instance().areBacktraceReportsEnabled());
  EXPECT_EQ(reply("deadlocktest", "start"), "Deadlock test started.\n");
  EXPECT_EQ(reply("deadlocktest", ""), "Deadlock test stopped.\n");
}

TEST_F(ManagerMessages, Reports)
{
  std::thread([&] {
    manager().registerThread("worker");
    EXPECT_THAT(reply("threads", "show"),
                testing::ContainsRegex("^Currently registered threads \\(1\\):\n"
                                       "thread::id \\| pid_t \\| pthread_t \\| name\n"
                                       "0x[0-9a-f]+ \\| [0-9]+ \\| 0x[0-9a-f]+ \\| worker\n$"));
    manager().unregisterThread();
  }).join();
  EXPECT_EQ(reply("threads", "hide") + reply("lockHolders", "hide") + reply("unheard", "of"), "");
  {
    const BLLManager::exclusiveLock_t guard;
    EXPECT_THAT(reply("lockHolders", "show"), HasSubstr("|"));
  }
  EXPECT_THAT(reply("featuresupport", ""), HasSubstr(" httpserver: false\n"));
  EXPECT_EQ(reply("setfeature", " httpserver = 1 = 2"), "Setting BLL feature 'httpserver' to True\n");
  EXPECT_EQ(reply("setfeature", "httpserver=0"), "Setting BLL feature 'httpserver' to False\n");
  EXPECT_EQ(reply("setfeature", "httpserver"), "");
  EXPECT_NE(reply("measureTimeX", "show"), "");
}

TEST_F(ManagerMessages, LevelsOfTheLog)
{
  names_t replies;
  for (const char* value : {"critical", "warning", "notice", "verbose", "off"})
    replies.push_back(reply("debugLevelX", value));
  EXPECT_THAT(replies,
              ElementsAre("Debug level set to Critical(0)\n", "Debug level set to Warning(1)\n",
                          "Debug level set to Notice(2)\n", "Debug level set to Debug(3)\n", "Debug level disabled\n"));
}

TEST_F(ManagerMessages, LockingPeriodIsSecondsOrAnError)
{
  testing::internal::CaptureStdout();
  reply("lockingPeriod", "10");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "BLLManager::onExternalMessage: set lock_t::lockingPeriod=10\n");
  EXPECT_EQ(BLLManager::lock_t::lockingPeriod.wholeSeconds(), 10);
  EXPECT_THROW(reply("lockingPeriod", "ten"), std::invalid_argument);
  EXPECT_THROW(reply("lockingPeriod", "2147483648"), std::out_of_range);
  EXPECT_EQ(BLLManager::lock_t::lockingPeriod.wholeSeconds(), 10);
  reply("lockingPeriod", "300");
}

TEST_F(ManagerMessages, TheBridgePlugInIsReached)
{
  for (const char* message : {"ippc_la_init", "ippc_la_add_ports", "ippc_la_ports_up", "ippc_la_show"})
    reply(message, "");
  reply("laDebugMask", "pdu_config");
  reply("laDebugMask", "config");
  names_t texts = syslog_take_texts();
  EXPECT_THAT(texts, ElementsAre(HasSubstr("test 1"), HasSubstr("test 2"), HasSubstr("test 3"), HasSubstr("test 4"),
                                 HasSubstr("mask 3"), HasSubstr("mask 1")));
}

TEST_F(ManagerMessages, TheReplyReachesTheTerminalOrTheLogSaysWhyNot)
{
  const auto fails = [this](const std::string& tty) { return manager().postExternalMessage("any", "", tty); };
  EXPECT_FALSE(fails("/nowhere")) << "nothing to deliver";
  answerWith("the reply");
  testing::internal::CaptureStdout();
  EXPECT_FALSE(fails(""));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "the reply");
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  const int reader = open(path("fifo").c_str(), O_RDONLY | O_NONBLOCK);
  EXPECT_FALSE(fails(path("fifo")));
  char got[16] = {};
  EXPECT_GT(read(reader, got, sizeof got - 1), 0);
  EXPECT_STREQ(got, "the reply");
  close(reader);

  EXPECT_TRUE(fails(folder));
  EXPECT_TRUE(fails("/dev/full"));
  const caller_scope unknown(nullptr);  // may write nowhere
  EXPECT_TRUE(fails("/dev/null"));
  EXPECT_THAT(logged(),
              ElementsAre("Error opening tty file for writing: " + folder + "\n", "Error writing to file: /dev/full\n",
                          "Error opening tty file for writing: /dev/null\n"));
}

TEST(ManagerMessagesManual, NamesEveryMessage)
{
  const std::string manual = file_text(PROJECT_DOCS "/framework.md");
  for (const bllCommand_t& command : bllCommands) {
    const std::string name = std::string(command.message) + (command.prefix ? "..." : "");
    EXPECT_THAT(manual,
                testing::ContainsRegex("\n\\| `" + name + "` \\|[^\n]*\\| " + std::string(command.what).substr(0, 20)));
  }
}

TEST_F(ManagerMessages, EventsAreGivenUnderTheLock)
{
  names_t got;
  const auto locked = [] { return BLLManager::lockCheck(lockType::write) ? " locked" : " unlocked"; };
  manager().configurationAppliedSubscribers.emplace_back(
      [&](int code) { got.push_back(std::to_string(code) + locked()); });
  manager().preConfigurationApplyingSubscribers.emplace_back([&] { got.push_back(std::string("pre") + locked()); });
  EXPECT_TRUE(manager().postConfigurationApplied(7));
  EXPECT_TRUE(manager().postPreConfigurationApplying());
  EXPECT_THAT(got, ElementsAre("7 locked", "pre locked"));

  bool agrees = true;
  for (int i = 0; i < 2; ++i)
    manager().reloadRequestSubscribers.emplace_back(
        [&](bool asked) { return got.push_back("reload"), asked && agrees; });
  got.clear();
  EXPECT_TRUE(manager().systemReloadRequest("why"));
  agrees = false;
  EXPECT_FALSE(manager().systemReloadRequest("why not"));
  EXPECT_EQ(got.size(), 3u) << "the first that refuses ends the walk";
  EXPECT_THAT(logged(), ElementsAre("BLLManager::systemReloadRequest, msg: why\n",
                                    "BLLManager::systemReloadRequest, msg: why not\n",
                                    "BLLManager::systemReloadRequest, reload request denied\n"));
}

}  // namespace
