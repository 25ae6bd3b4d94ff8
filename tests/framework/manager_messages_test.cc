// Operators' messages and the manager's events.
#include "tests/framework/manager_support.h"

#include "base/caller.h"
#include "rte/BLL/core/manager/messages.h"
#include "rte/BLL/core/manager/subscribers.h"
#include "rte/BLL/core/self_debugger.h"
#include <array>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>

namespace {

using namespace manager_test;
using testing::ElementsAre;
using testing::HasSubstr;

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

TEST_F(ManagerMessages, AreAnswered)
{
  const std::array<const char*, 3> answers[] = {
      {"deadlocktest", "start", "Deadlock test started.\n"},
      {"deadlocktest", "", "Deadlock test stopped.\n"},
      {"debugLevelX", "critical", "Debug level set to Critical(0)\n"},
      {"debugLevel", "warning", "Debug level set to Warning(1)\n"},
      {"debugLevel", "notice", "Debug level set to Notice(2)\n"},
      {"debugLevel", "verbose", "Debug level set to Debug(3)\n"},
      {"debugLevel", "off", "Debug level disabled\n"},
      {"setfeature", " dsfec = 1 = 2", "Setting BLL feature 'dsfec' to True\n"},
      {"setfeature", "legacyalarm=0", "Setting BLL feature 'legacyalarm' to False\n"},
      {"setfeature", "httpserver", ""},
      {"featuresupport", "",
       "Supported features:\n------------------\n dsfec: true\n httpserver: false\n lagmembership: true\n"
       " legacyalarm: false\n oltintervalstat: true\n oltsfpmode: false\n onubasedoltstates: false\n"
       " sfpuplinkspeed: false\n uplinksfpwhitelist: false\n"},
      {"measureTimeX", "show", "No such message: measureTimeX. Known: measureTime with on, off, show or reset.\n"},
      {"threads", "hide", ""},
      {"lockHolders", "hide", ""},
      {"unheard", "of", ""},
      {"lockDebug", "perhaps", ""},
      {"reportBacktraces", "perhaps", ""},
  };
  for (const auto& [message, value, answered] : answers)
    EXPECT_EQ(reply(message, value), answered) << message;
  EXPECT_EQ(told(), "4 Warning: BLL Manager has received the message <lockDebug> with wrong value <perhaps>.|\n"
                    "4 bllmsg: invalid message: reportBacktraces perhaps|\n");
  for (const std::string value : {"on", "off"}) {
    reply("lockDebug", value);
    EXPECT_EQ(BLLManager::lockDebug, value == "on");
    reply("reportBacktraces", value);
    EXPECT_EQ(singleton<SelfDebugger>::instance().areBacktraceReportsEnabled(), value == "on");
  }
  const BLLManager::exclusiveLock_t guard;
  EXPECT_THAT(reply("lockHolders", "show"), HasSubstr(" |         1 | "));
}

TEST_F(ManagerMessages, ShowTheThreads)
{
  std::thread([&] {
    manager().registerThread("worker");
    EXPECT_THAT(reply("threads", "show"), testing::MatchesRegex("Currently registered threads \\(1\\):\n"
                                                                "thread::id \\| pid_t \\| pthread_t \\| name\n"
                                                                "0x[0-9a-f]+ \\| [0-9]+ \\| 0x[0-9a-f]+ \\| worker\n"));
    const std::string id = " (" + std::to_string(gettid()) + ")|\n";
    manager().unregisterThread();
    EXPECT_EQ(told(),
              "5 BLLManager: thread registered: worker" + id + "5 BLLManager: thread unregistered: worker" + id);
  }).join();
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

  logEverything();
  EXPECT_TRUE(fails(folder));
  EXPECT_TRUE(fails("/dev/full"));
  const caller_scope unknown(nullptr);  // may write nowhere
  EXPECT_TRUE(fails("/dev/null"));
  const std::string event = "7 *** EVENT: <externalMessage>: notify all subscribers.|\n";
  EXPECT_EQ(told(), event + "2 Error opening tty file for writing: " + folder + "|\n" + event +
                        "2 Error writing to file: /dev/full|\n" + event +
                        "2 Error opening tty file for writing: /dev/null|\n");
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

// The first subscriber of all adds one in each call, who is called from the next on.
TEST_F(ManagerMessages, AreForOneListByTheirPrefix)
{
  const subscribers_t subscribers{manager()};
  std::string got;
  manager().prefixedMessageSubscribers.emplace_back(
      [&](const std::string& message, const std::string& value, const std::string& tty) {
        got += message + " " + value + " " + tty;
      });
  manager().externalMessageSubscribers.emplace_back(
      [&](const std::string& message, const std::string& value, std::ostringstream& out, const std::string& tty) {
        out << message + value + tty + ": ";
        answerWith("new ");
      });
  answerWith("second ");
  const auto answers = [&](const std::string& message) {
    std::ostringstream out;
    subscribers.message(message, "value", out, "tty");
    return out.str();
  };
  EXPECT_EQ(answers("dhcpra:show"), "");
  EXPECT_EQ(got, "show value tty");
  EXPECT_EQ(answers("show"), "showvaluetty: second ");
  EXPECT_EQ(answers("show"), "showvaluetty: second new ");
  EXPECT_EQ(got, "show value tty");
  manager().externalMessageSubscribers.emplace_back();
  answerWith("behind");
  std::ostringstream out;
  EXPECT_THROW(subscribers.message("any", "", out, ""), boost::bad_function_call);
  EXPECT_EQ(out.str(), "any: second new new ");
}

TEST_F(ManagerMessages, EventsAreGivenUnderTheLock)
{
  names_t got;
  const auto locked = [] { return BLLManager::lockCheck(lockType::write) ? " locked" : " unlocked"; };
  manager().configurationAppliedSubscribers.emplace_back(
      [&](int code) { got.push_back(std::to_string(code) + locked()); });
  manager().preConfigurationApplyingSubscribers.emplace_back([&] { got.push_back(std::string("pre") + locked()); });
  logEverything();
  EXPECT_TRUE(manager().postConfigurationApplied(7));
  EXPECT_TRUE(manager().postPreConfigurationApplying());
  EXPECT_THAT(got, ElementsAre("7 locked", "pre locked"));

  int asked = 0;
  manager().reloadRequestSubscribers.emplace_back([&](bool reload) {
    for (int i = 0; i < 100; ++i)  // enough to move the list to another place
      manager().reloadRequestSubscribers.emplace_back([&](bool really) { return really && ++asked < 3; });
    return reload;
  });
  EXPECT_TRUE(manager().systemReloadRequest("why"));
  EXPECT_EQ(asked, 0);
  EXPECT_FALSE(manager().systemReloadRequest("why not"));
  EXPECT_EQ(asked, 3) << "the first that refuses ends the walk";
  EXPECT_EQ(told(), "7 *** EVENT: <configurationApplied>, notify all subscribers.|\n"
                    "7 *** EVENT: <preConfigurationApplying>, notify all subscribers.|\n"
                    "4 BLLManager::systemReloadRequest, msg: why|\n4 BLLManager::systemReloadRequest, msg: why not|\n"
                    "4 BLLManager::systemReloadRequest, reload request denied|\n");
}

}  // namespace
