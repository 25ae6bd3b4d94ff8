// Starting, rolling back, saving and stopping entities in the order of their dependences.
#include "tests/framework/manager_support.h"
#include "tests/support/files.h"

#include <algorithm>
#include <random>
#include <set>
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

// Finds a cycle by taking away, again and again, whoever needs nobody that is left.
bool hasCycle(std::map<std::string, std::set<std::string>> needs)
{
  for (bool progress = true; progress && !needs.empty();) {
    progress = false;
    for (auto row = needs.begin(); row != needs.end();)
      if (std::ranges::none_of(row->second, [&](const std::string& name) { return needs.contains(name); })) {
        row = needs.erase(row);
        progress = true;
      } else {
        ++row;
      }
  }
  return !needs.empty();
}

TEST_F(ManagerProcedures, RandomGraphsAreOrderedOrTheirCycleIsFound)
{
  std::mt19937 random(20'000'017);
  int cycles = 0;
  for (const size_t size : {1, 2, 3, 5, 8, 20, 100, 400, 2000, 2, 3, 4, 5, 6, 7, 8, 9, 10}) {
    names_t names;
    for (size_t i = 0; i < size; ++i)
      names.push_back("e" + std::to_string(i));
    configureToStart(names);
    made.reset();
    entities.clear();
    std::ranges::shuffle(names, random);
    std::map<std::string, std::set<std::string>> needs;
    const bool backwards = random() % 3 == 0;  // may close a cycle
    for (size_t i = 0; i < size; ++i)
      for (size_t edge = random() % 6; edge-- > 0;)
        if (const size_t j = random() % size; backwards ? j != i : j < i)
          needs[names[i]].insert(names[j]);
    for (const std::string& name : names)
      add(name, {needs[name].begin(), needs[name].end()});
    std::list<std::string> order;
    const bool found = !manager().resolveDependences(order);
    EXPECT_EQ(found, hasCycle(needs));
    cycles += found;
    std::set<std::string> seen;
    for (const std::string& name : order) {
      EXPECT_TRUE(std::ranges::includes(seen, needs[name])) << name << " comes before what it needs";
      seen.insert(name);
    }
    EXPECT_EQ(seen.size(), found ? 0 : size);
  }
  EXPECT_GT(cycles, 1);
}

}  // namespace
