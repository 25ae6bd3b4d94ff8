// The table of entities and the order of their dependences.
#include "rte/BLL/core/manager/entities.h"

#include "tests/framework/manager_support.h"
#include <algorithm>
#include <deque>
#include <random>
#include <set>
#include <thread>

namespace {

using namespace manager_test;

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

TEST(ManagerEntities, RandomGraphsAreOrderedOrTheirCycleIsFound)
{
  std::mt19937 random(20'000'017);
  int cycles = 0;
  for (const size_t size : {1, 2, 3, 5, 8, 20, 100, 400, 2000, 2, 3, 4, 5, 6, 7, 8, 9, 10}) {
    names_t names;
    for (size_t i = 0; i < size; ++i)
      names.push_back("e" + std::to_string(i));
    std::ranges::shuffle(names, random);
    std::map<std::string, std::set<std::string>> needs;
    const bool backwards = random() % 3 == 0;  // may close a cycle
    for (size_t i = 0; i < size; ++i)
      for (size_t edge = random() % 6; edge-- > 0;)
        if (const size_t j = random() % size; backwards ? j != i : j < i)
          needs[names[i]].insert(names[j]);
    names_t calls;
    std::deque<entity_t> entities;
    entityTable_t table;
    for (const std::string& name : names)
      table.enter(entities.emplace_back(name, calls, std::list<std::string>{needs[name].begin(), needs[name].end()}));
    std::list<std::string> order;
    const bool found = !table.resolveDependences(order);
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

// Entities may register on one thread while another one orders them, and while they are asked what they need.
TEST(ManagerEntities, RegisterWhileTheyAreOrdered)
{
  struct entering_t : entity_t {
    entering_t(names_t& list, entityTable_t& entered, BLEntity& more)
        : entity_t("first", list, {"second"}), table(entered), other(more)
    {}
    void getDependences(std::list<std::string>& list) override
    {
      table.enter(other);
      entity_t::getDependences(list);
    }
    entityTable_t& table;
    BLEntity& other;
  };
  names_t calls;
  entityTable_t table;
  entity_t second("second", calls);
  entity_t twin("second", calls);
  entering_t first(calls, table, twin);
  table.enter(first);
  table.enter(second);
  std::thread other([&] {
    for (int i = 0; i < 100; ++i)
      table.enter(second);
  });
  for (int i = 0; i < 100; ++i) {
    const auto order = table.startOrder();
    ASSERT_EQ(order.size(), 2u);
    EXPECT_EQ(order[0].name, "second");
    EXPECT_EQ(order[1].entity, &first);
  }
  other.join();
  EXPECT_EQ(table.startOrder()[0].entity, &twin) << "the last one that entered under the name";
}

}  // namespace
