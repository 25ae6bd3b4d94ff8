// Starting, rolling back, saving and stopping entities in the order of their dependences.
#include "tests/framework/lock_support.h"
#include "tests/framework/manager_support.h"
#include "tests/support/files.h"

#include <algorithm>
#include <thread>

namespace {

using namespace manager_test;
using testing::ElementsAre;
using testing::IsEmpty;

class ManagerProcedures : public ManagerTest {
protected:
  void SetUp() override { configureToStart({"a", "b", "c"}); }
  void applyAndForget()
  {
    manager().applyConfiguration("file");
    calls.clear();
    logged();
  }
};

// manager_life.txt has what the log tells of each step, with what the entities are asked. c needs b, b needs "a a",
// whose name XML does not allow.
TEST_F(ManagerProcedures, ALifeAsTheLogTellsIt)
{
  configureToStart({"a a", "b", "c", "off"});
  EXPECT_TRUE(manager().disableBLLEntity("off"));
  logEverything();
  told();
  std::string life;
  const auto step = [&](const std::string& what, bool succeeds = true) {
    life += (life.empty() ? "= " : "\n= ") + what + (succeeds ? "\n" : ": no\n") + told();
  };
  const auto refused = [&] {
    step("default settings", manager().applyDefaultSettings());
    manager().stop(true, path("never.xml"));
    step("stop");
    step("register", manager().registerEntity(*entities[0]));
  };
  entity_t& b = add("b", {"nobody", "a a"});
  entity_t& a = add("a a");
  entity_t& c = add("c", {"b"});
  add("off");
  refused();
  step("start", manager().start());
  b.throwsIn = "configure";
  manager().applyConfiguration("file");
  step("configure, where b throws");
  refused();
  manager().applyConfiguration("file");
  step("configure again");
  a.answers = false;
  step("start, where the first fails", manager().start());
  a.answers = true;
  b.throwsIn = "stop";
  c.defaultAnswers = false;
  step("start, where the last has no default settings and b throws when it stops", manager().start());
  c.defaultAnswers = true;
  step("start", manager().start());
  step("start again", manager().start());
  manager().applyConfiguration("file");
  step("configure again");
  step("default settings", manager().applyDefaultSettings());
  b.defaultAnswers = false;
  step("default settings, where b fails", manager().applyDefaultSettings());
  manager().stop(true, path("saved.xml"));
  step("stop, where b throws");
  refused();
  manager().applyConfiguration("file");
  step("configure again");
  b.defaultAnswers = true;
  b.throwsIn = "save";
  step("start again", manager().start());
  manager().saveConfiguration(path("again.xml"));
  step("save, where b throws");
  EXPECT_EQ(life, file_text(FRAMEWORK_TESTS "/manager_life.txt"));
  for (const char* file : {"saved.xml", "again.xml"})
    EXPECT_EQ(file_text(path(file)), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Configuration>\n"
                                     "  <b Of=\"b\"/>\n  <c Of=\"c\"/>\n</Configuration>\n");
  EXPECT_FALSE(std::filesystem::exists(path("never.xml")));
  EXPECT_FALSE(BLLManager::lockCheck(lockType::read));
}

// Who does not get the lock does nothing, but tries again to stop; who had to wait for it asks again whether it may
// run.
TEST_F(ManagerProcedures, RunUnderTheLockOrNotAtAll)
{
  add("a");
  manager();
  lock_test::actor_t holder, late;
  const auto hold = [] { BLLManager::lock.timedLock(lock_test::farAway()); };
  const auto letGo = [] { BLLManager::lock.unlock(); };
  const auto shorten = [] { BLLManager::lock_t::lockingPeriod = boost::posix_time::milliseconds(1); };
  const auto lengthen = [] { BLLManager::lock_t::lockingPeriod = boost::posix_time::minutes(5); };
  const std::function<void()> configure = [&] { manager().applyConfiguration("file"); },
                              start = [&] { manager().start(); }, stop = [&] { manager().stop(false, ""); },
                              defaults = [&] { manager().applyDefaultSettings(); },
                              save = [&] { manager().saveConfiguration(path("saved.xml")); },
                              tell = [&] { manager().postConfigurationApplied(7); },
                              tellBefore = [&] { manager().postPreConfigurationApplying(); };
  manager().configurationAppliedSubscribers.emplace_back([&](int) { calls.push_back("told"); });
  manager().preConfigurationApplyingSubscribers.emplace_back([&] { calls.push_back("told before"); });
  const std::tuple<std::function<void()>, std::function<void()>, std::function<void()>> turns[] = {
      {configure, configure, configure},
      {start, start, start},
      {defaults, stop, stop},
      {save, start, start},
      {tell, defaults, stop},
      {tellBefore, start, start}};
  for (const auto& [inVain, waits, runs] : turns) {
    holder.run(hold);
    shorten();
    inVain();
    lengthen();  // only the first of equal failures does
    holder.run(letGo);
    std::future<void> done;
    {
      const BLLManager::exclusiveLock_t guard;
      done = late.start(waits);
      lock_test::awaitWriter(BLLManager::lock, late.id());
      runs();
    }
    done.get();
  }
  const std::string up = "start a", given = "default a", down = "stop a";
  EXPECT_THAT(calls, ElementsAre("configure a", up, given, down, up, given, down, up, given));
  EXPECT_FALSE(std::filesystem::exists(path("saved.xml")));

  holder.run(hold);
  shorten();
  logged();
  auto stopped = late.start(stop);
  names_t lines;
  while (std::ranges::count(lines, "Warning: Could not obtain exclusive lock for stopping BLL. Will try again.\n") == 0)
    lines = logged();
  holder.run(letGo);
  stopped.get();
  EXPECT_EQ(calls.back(), down);
}

TEST_F(ManagerProcedures, TheDurationsOfDefaultSettingsAreToldWhenWanted)
{
  add("a");
  add("b");
  manager().applyConfiguration("file");
  EXPECT_TRUE(manager().start());
  std::ostringstream out;
  logged();
  testing::internal::CaptureStdout();
  for (int times = 0; times < 2; ++times) {
    manager().onExternalMessage("scripter_debug_time", "", out);
    EXPECT_TRUE(manager().applyDefaultSettings());
  }
  const std::string set = "BLLManager::onExternalMessage: Set BLLManager::cpuUsageDebug to ",
                    took = "\r\\([0-9]+ ms\\) took BLE ";
  EXPECT_THAT(testing::internal::GetCapturedStdout(),
              testing::MatchesRegex(set + "1\n" + took + "'a'.\n" + took + "'b'.\n" + set + "0\n"));
}

TEST_F(ManagerProcedures, ACycleStartsNothingAndSucceeds)
{
  add("a", {"b"});
  add("b", {"a"});
  add("c", {"c"});
  applyAndForget();
  std::list<std::string> order = {"as it was"};
  EXPECT_FALSE(manager().resolveDependences(order));
  EXPECT_THAT(order, ElementsAre("as it was"));
  EXPECT_THAT(logged(), ElementsAre("\n", "Graph of initialization dependences has cycle(s).\n"));
  EXPECT_TRUE(manager().start());
  EXPECT_THAT(calls, IsEmpty());
}

// What the manager calls may call the manager: an entity, and a subscriber that the entity has called.
TEST_F(ManagerProcedures, WhomItCallsMayCallIt)
{
  struct calling_t : entity_t {
    calling_t(names_t& list, BLLManager& called) : entity_t("a", list), manager(called) {}
    bool start() override
    {
      EXPECT_FALSE(manager.registerEntity(*this));
      EXPECT_TRUE(manager.checkBllEntity("b") && manager.disableBLLEntity("b"));
      std::list<std::string> order;
      EXPECT_TRUE(manager.resolveDependences(order));
      EXPECT_EQ(order.size(), 1u);
      EXPECT_TRUE(manager.postConfigurationApplied(7));
      return true;
    }
    BLLManager& manager;
  };
  calling_t calling(calls, manager());
  manager().registerEntity(calling);
  std::ostringstream out;
  manager().configurationAppliedSubscribers.emplace_back([&](int code) {
    manager().configurationAppliedSubscribers.emplace_back();
    manager().setBllFeature("of " + std::to_string(code), false, out);
    manager().dumpFeatureSupport(out);
    manager().saveConfiguration(path("saved.xml"));
    EXPECT_FALSE(manager().postExternalMessage("any", "", ""));
    EXPECT_TRUE(manager().systemReloadRequest("why"));
  });
  manager().applyConfiguration("file");
  EXPECT_TRUE(manager().start());
  EXPECT_THAT(out.str(), testing::HasSubstr(" of 7: false\n"));
}

}  // namespace
