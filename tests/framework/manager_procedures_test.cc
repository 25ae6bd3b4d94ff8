// Starting, rolling back, saving and stopping entities in the order of their dependences.
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
  // a needs b, b needs c: c, b, a.
  void addChain()
  {
    add("a", {"b", "nobody"});
    add("b", {"c"});
    add("c");
  }
  void applyAndForget()
  {
    manager().applyConfiguration("file");
    calls.clear();
    logged();
  }
};

TEST_F(ManagerProcedures, ALifeFromConfigurationToStop)
{
  addChain();
  EXPECT_FALSE(manager().start());
  manager().applyConfiguration("file");
  EXPECT_THAT(calls, ElementsAre("configure c", "configure b", "configure a"));
  calls.clear();
  EXPECT_TRUE(manager().start());
  EXPECT_THAT(calls, ElementsAre("start c", "default c", "start b", "default b", "start a", "default a"));
  EXPECT_FALSE(manager().start());
  calls.clear();
  manager().stop(true, path("saved.xml"));
  EXPECT_THAT(calls, ElementsAre("stop a", "stop b", "stop c", "save c", "save b", "save a"));
  EXPECT_EQ(file_text(path("saved.xml")), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Configuration>\n"
                                          "  <c Of=\"c\"/>\n  <b Of=\"b\"/>\n  <a Of=\"a\"/>\n</Configuration>\n");
  calls.clear();
  manager().stop(true, path("again.xml"));
  EXPECT_FALSE(manager().applyDefaultSettings());
  EXPECT_THAT(calls, IsEmpty());
  EXPECT_TRUE(manager().start()) << "a stopped manager may start again";
}

TEST_F(ManagerProcedures, OnlyWhoIsToStartIsEntered)
{
  configure("<BOARD Id='all_boards'><BLE Name='a' Start='true'/><BLE Name='b' Start='no'/></BOARD>");
  manager();
  logEverything();
  logged();
  add("a");
  add("b");
  add("unknown");
  add("");
  EXPECT_THAT(logged(),
              ElementsAre("Registering BLE <a>... done.\n", "Registering BLE <b>... not registered.\n",
                          "Registering BLE <unknown>... not registered.\n", "Registering BLE <>... not registered.\n"));
  entity_t twin("a", calls);
  EXPECT_TRUE(manager().registerEntity(twin)) << "takes the place of the first";
  manager().applyConfiguration("file");
  logged();
  EXPECT_FALSE(manager().registerEntity(twin));
  EXPECT_THAT(logged(), ElementsAre("Registering BLE <a>... error.\n"));
  EXPECT_THAT(calls, ElementsAre("configure a"));
}

TEST_F(ManagerProcedures, TheLogTellsOfAStart)
{
  addChain();
  applyAndForget();
  EXPECT_TRUE(manager().start());
  EXPECT_THAT(logged(), ElementsAre("\n", "BLE init order:\n", "\n", "    BLE <c>... \n", "\n", "    BLE <b>... \n",
                                    "\n", "    BLE <a>... \n", "\n", "<<< Starting procedure has been completed.\n"));
}

TEST_F(ManagerProcedures, AFailureRollsBackInReverseOrder)
{
  configureToStart({"a", "b", "c"});
  add("a");
  entity_t& stubborn = add("b", {"a"});
  entity_t& failing = add("c", {"b"});
  applyAndForget();
  failing.answers = false;
  stubborn.throwsIn = "stop";
  logEverything();
  EXPECT_FALSE(manager().start());
  EXPECT_THAT(calls, ElementsAre("start a", "default a", "start b", "default b", "start c", "stop b", "stop a"));
  std::string all;
  for (const std::string& line : logged())
    all += line;
  EXPECT_EQ(all, ">>> Starting procedure has been started.\n"
                 "\nBLE init order:\n\n    BLE <a>... \n\n    BLE <b>... \n\n    BLE <c>... \n"
                 "\n    BLE <a>... done.\n    BLE <b>... done.\n    BLE <c>... error.\n"
                 "Start procedure has been interrupted by an error.\n"
                 "Error starting c BLE.\nWill start stop procedure.\n>>> Stopping procedure has been started.\n"
                 "\n    BLE <b>... BLE b has thrown: no stop\nerror.\nError stopping b BLE.\n"
                 "\n    BLE <a>... done.\n<<< Stopping procedure has been completed.\n");
  calls.clear();
  stubborn.throwsIn.clear();
  failing.answers = true;
  failing.defaultAnswers = false;
  EXPECT_FALSE(manager().start()) << "still configured, and free to try again";
  EXPECT_EQ(calls.back(), "stop a");
}

TEST_F(ManagerProcedures, TheFirstOneFailingStopsNobody)
{
  add("a").throwsIn = "start";
  applyAndForget();
  EXPECT_FALSE(manager().start());
  EXPECT_THAT(calls, ElementsAre("start a"));
  EXPECT_THAT(BLLManager::lock.getStateMap(), testing::Each(testing::Truly([](const auto& row) {
                return row.second.exclusiveCount == 0 && row.second.sharedCount == 0;
              })));
}

TEST_F(ManagerProcedures, WhatIsThrownWithoutAResultIsReported)
{
  add("a").throwsIn = "configure";
  manager();
  logged();
  manager().applyConfiguration("file");
  EXPECT_THAT(logged(), ElementsAre("BLE a has thrown: no configure\n"));
  EXPECT_TRUE(manager().start());
  entities[0]->throwsIn = "save";
  manager().saveConfiguration(path("saved.xml"));
  EXPECT_TRUE(std::filesystem::exists(path("saved.xml")));
}

TEST_F(ManagerProcedures, NamesThatXmlDoesNotAllowAreNotSaved)
{
  configureToStart({"a b", "c"});
  add("a b");
  add("c");
  applyAndForget();
  logged();
  manager().saveConfiguration(path("saved.xml"));
  EXPECT_THAT(calls, ElementsAre("save a b", "save c"));
  EXPECT_THAT(logged(), ElementsAre("BLE a b cannot be saved under its name.\n"));
  EXPECT_THAT(file_text(path("saved.xml")), testing::EndsWith("<Configuration>\n  <c Of=\"c\"/>\n</Configuration>\n"));
}

TEST_F(ManagerProcedures, OfTwoThreadsThatStopOneDoes)
{
  add("a");
  applyAndForget();
  EXPECT_TRUE(manager().start());
  calls.clear();
  std::vector<std::thread> threads;
  {
    const BLLManager::exclusiveLock_t guard;
    for (int i = 0; i < 2; ++i)
      threads.emplace_back([this] { manager().stop(false, ""); });
    const auto bothWait = [] {
      return std::ranges::count_if(BLLManager::lock.getStateMap(),
                                   [](const auto& row) { return row.second.waiting; }) == 2;
    };
    while (!bothWait())
      std::this_thread::yield();
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_THAT(calls, ElementsAre("stop a"));
}

TEST_F(ManagerProcedures, DefaultSettingsStopAtTheFirstFailure)
{
  addChain();
  applyAndForget();
  EXPECT_TRUE(manager().start());
  calls.clear();
  entities[1]->defaultAnswers = false;
  EXPECT_FALSE(manager().applyDefaultSettings());
  EXPECT_THAT(calls, ElementsAre("default c", "default b"));
  entities[1]->defaultAnswers = true;
  std::ostringstream out;
  manager().onExternalMessage("scripter_debug_time", "", out);
  testing::internal::CaptureStdout();
  EXPECT_TRUE(manager().applyDefaultSettings());
  EXPECT_THAT(testing::internal::GetCapturedStdout(),
              testing::MatchesRegex("(\r\\([0-9]+ ms\\) took BLE '[abc]'.\n)+"));
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
