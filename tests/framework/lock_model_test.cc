// Walks every interleaving of a few threads over the real rules of the framework lock.
//
// Looked for are two holders that exclude each other, a reader that is served before a writer which came before it and
// still waits, a reader held back without reason, deadlocks, lost wake-ups.
//
// A model thread runs a program of takes and releases. What the real lock does under its internal mutex is one step
// here, executed by lockRules_t itself; between two steps any thread may come next. A thread that waits sleeps in the
// queue it was told; a wake-up of one picks any sleeper of the queue, and each choice is followed. A sleeper may wake
// up without reason, and one with a deadline may time out at any moment, also when a wake-up has just reached it.
#include "rte/BLL/core/lock/rules.h"
#include <algorithm>
#include <future>
#include <gtest/gtest.h>
#include <string>
#include <unordered_set>
#include <vector>

namespace {

using access_t = lockRules_t::access_t;
using answer_t = lockRules_t::answer_t;
using stateData = lockRules_t::stateData;

// Real ids, because others cannot be made: of threads that do nothing until the end of the tests.
class idSource_t {
public:
  explicit idSource_t(size_t count)
  {
    for (size_t i = 0; i < count; ++i)
      threads_.emplace_back([go = go_] { go.wait(); });
  }
  ~idSource_t()
  {
    stop_.set_value();
    for (auto& thread : threads_)
      thread.join();
  }
  boost::thread::id operator[](size_t i) const { return threads_[i].get_id(); }

private:
  std::promise<void> stop_;
  std::shared_future<void> go_{stop_.get_future().share()};
  std::vector<boost::thread> threads_;
};
constexpr size_t outsider = 4;  // the id of a thread that asks for the first time

boost::thread::id idOf(size_t thread)
{
  static const idSource_t ids(outsider + 1);
  return ids[thread];
}

// "SE.es": takes (S shared, E exclusive) and releases (s, e). After a take that failed the thread gives back what it
// has and ends. With `patient` its takes have no deadline.
struct program_t {
  std::string steps;
  bool patient;
};

enum class phase_t : char { runs = 'r', sleeps = 's', woken = 'w', givesBack = 'g' };
struct modelThread_t {
  size_t next = 0;  // the step to take, or that waits
  phase_t phase = phase_t::runs;
  answer_t queue = answer_t::granted;  // where it sleeps
  size_t arrived = 0;                  // its place among those that had to wait, since this take did; 0: it has not
};
struct world_t {
  lockRules_t rules;
  std::vector<modelThread_t> threads;
};

stateData stateOf(const world_t& world, size_t t)
{
  const auto row = world.rules.states().find(idOf(t));
  return row == world.rules.states().end() ? stateData{} : row->second;
}

// The conflict test as the rules are told to people, over the whole table and with the model's own knowledge of who
// waits and since when: the sums and the line must agree with it. `arrived` 0 asks for a thread that comes now.
bool inConflict(const world_t& world, const std::vector<program_t>& programs, size_t self, size_t arrived,
                access_t access)
{
  if (stateOf(world, self).exclusiveCount > 0)
    return false;
  for (size_t t = 0; t < programs.size(); ++t) {
    if (t == self)
      continue;
    const stateData others = stateOf(world, t);
    if (others.exclusiveCount > 0 || (access == access_t::exclusive && others.sharedCount > 0))
      return true;
    const modelThread_t& other = world.threads[t];
    const bool waitsExclusive =
        (other.phase == phase_t::sleeps || other.phase == phase_t::woken) && programs[t].steps[other.next] == 'E';
    const bool cameBefore = arrived == 0 || other.arrived < arrived;
    if (access == access_t::shared && stateOf(world, self).sharedCount <= 0 && waitsExclusive && cameBefore)
      return true;  // no reader that came later is served before a waiting writer
  }
  return false;
}

class walk_t {
public:
  explicit walk_t(std::vector<program_t> programs) : programs_(std::move(programs)) {}

  void run()
  {
    world_t start;
    start.threads.resize(programs_.size());
    visit(std::move(start));
    while (!open_.empty() && !::testing::Test::HasFailure()) {
      const world_t world = std::move(open_.back());
      open_.pop_back();
      for (size_t t = 0; t < programs_.size(); ++t)
        stepEveryWay(world, t);
    }
  }
  size_t worlds() const { return seen_.size(); }
  bool sawUpgradersCrossed() const { return sawCrossed_; }
  bool sawAllDone() const { return sawDone_; }

private:
  bool done(const world_t& world, size_t t) const
  {
    const modelThread_t& thread = world.threads[t];
    if (thread.phase == phase_t::givesBack)
      return !lockRules_t::holds(stateOf(world, t));
    return thread.phase == phase_t::runs && thread.next == programs_[t].steps.size();
  }

  void stepEveryWay(const world_t& world, size_t t)
  {
    if (done(world, t))
      return;
    switch (world.threads[t].phase) {
    case phase_t::runs: {
      const char step = programs_[t].steps[world.threads[t].next];
      if (step == 'S' || step == 'E')
        ask(world, t, false);
      else
        giveBack(world, t, step == 'e' ? access_t::exclusive : access_t::shared);
      break;
    }
    case phase_t::givesBack:
      giveBack(world, t, stateOf(world, t).exclusiveCount > 0 ? access_t::exclusive : access_t::shared);
      break;
    case phase_t::sleeps:  // without reason, or at its deadline
    case phase_t::woken:
      ask(world, t, false);
      if (!programs_[t].patient)
        ask(world, t, true);
      break;
    }
  }

  void ask(world_t world, size_t t, bool deadlinePassed)
  {
    modelThread_t& thread = world.threads[t];
    const access_t access = programs_[t].steps[thread.next] == 'E' ? access_t::exclusive : access_t::shared;
    const bool conflict = inConflict(world, programs_, t, thread.arrived, access);
    lockRules_t::wakes_t wakes;
    const answer_t answer = world.rules.request(world.rules.row(idOf(t)), access, deadlinePassed, wakes);
    ASSERT_EQ(answer == answer_t::granted, !conflict) << describe(world);
    if (answer == answer_t::granted) {
      thread = {thread.next + 1, phase_t::runs, answer, 0};
      visit(std::move(world));
    } else if (answer == answer_t::failed) {
      thread.phase = phase_t::givesBack;
      thread.arrived = 0;
      visitWoken(world, wakes);
    } else {
      if (thread.arrived == 0)
        thread.arrived = lastInLine(world) + 1;
      thread.phase = phase_t::sleeps;
      thread.queue = answer;
      visit(std::move(world));
    }
  }

  void giveBack(world_t world, size_t t, access_t access)
  {
    if (world.threads[t].phase == phase_t::runs)
      ++world.threads[t].next;
    const auto wakes = world.rules.release(world.rules.row(idOf(t)), access);
    visitWoken(world, wakes);
  }

  static size_t lastInLine(const world_t& world)
  {
    return std::ranges::max(world.threads, {}, &modelThread_t::arrived).arrived;
  }

  // How many are before it: two worlds whose lines have the same order go on alike.
  static size_t place(const world_t& world, size_t arrived)
  {
    return static_cast<size_t>(
        std::ranges::count_if(world.threads, [&](const modelThread_t& t) { return t.arrived < arrived; }));
  }

  std::vector<size_t> sleepers(const world_t& world, answer_t queue) const
  {
    std::vector<size_t> found;
    for (size_t t = 0; t < programs_.size(); ++t)
      if (world.threads[t].phase == phase_t::sleeps && world.threads[t].queue == queue)
        found.push_back(t);
    return found;
  }

  // Every choice of whom the single wake-ups reach.
  void visitWoken(world_t world, const lockRules_t::wakes_t& wakes)
  {
    if (wakes.allShared)
      for (const size_t t : sleepers(world, answer_t::waitForShared))
        world.threads[t].phase = phase_t::woken;
    auto upgraders = wakes.oneUpgrade ? sleepers(world, answer_t::waitForUpgrade) : std::vector<size_t>{};
    auto writers = wakes.oneExclusive ? sleepers(world, answer_t::waitForExclusive) : std::vector<size_t>{};
    for (size_t u = 0; u < std::max<size_t>(upgraders.size(), 1); ++u)
      for (size_t w = 0; w < std::max<size_t>(writers.size(), 1); ++w) {
        world_t chosen = world;
        if (!upgraders.empty())
          chosen.threads[upgraders[u]].phase = phase_t::woken;
        if (!writers.empty())
          chosen.threads[writers[w]].phase = phase_t::woken;
        visit(std::move(chosen));
      }
  }

  void visit(world_t world)
  {
    if (!seen_.insert(describe(world)).second)
      return;
    check(world);
    open_.push_back(std::move(world));
  }

  void check(const world_t& world)
  {
    size_t exclusive = 0, shared = 0, finished = 0;
    for (size_t t = 0; t < programs_.size(); ++t) {
      const stateData state = stateOf(world, t);
      exclusive += state.exclusiveCount > 0;
      shared += state.sharedCount > 0 && state.exclusiveCount <= 0;
      finished += done(world, t);
      ASSERT_TRUE(state.sharedCount >= 0 && state.exclusiveCount >= 0) << describe(world);
    }
    ASSERT_LE(exclusive, 1U) << describe(world);
    ASSERT_TRUE(exclusive == 0 || shared == 0) << describe(world);
    ASSERT_EQ(world.rules.owner().has_value(), exclusive == 1) << describe(world);
    checkNewcomer(world);
    checkSleepers(world);
    if (finished == programs_.size())
      checkEnd(world);
  }

  // The answer that a thread without a row would get, from the sums: after every history, not only after the programs'.
  void checkNewcomer(const world_t& world)
  {
    for (const access_t access : {access_t::shared, access_t::exclusive}) {
      lockRules_t copy = world.rules;
      lockRules_t::wakes_t wakes;
      const answer_t answer = copy.request(copy.row(idOf(outsider)), access, true, wakes);
      ASSERT_EQ(answer == answer_t::granted, !inConflict(world, programs_, outsider, 0, access)) << describe(world);
    }
  }

  // No lost wake-up: when no wake-up is on its way, everyone who sleeps has a reason to. No deadlock: if nobody can run
  // at all, then only because two threads want to upgrade across each other.
  void checkSleepers(const world_t& world)
  {
    size_t asleep = 0, crossed = 0, canRun = 0;
    for (size_t t = 0; t < programs_.size(); ++t) {
      if (world.threads[t].phase == phase_t::woken)
        return;
      asleep += world.threads[t].phase == phase_t::sleeps;
      crossed += world.threads[t].phase == phase_t::sleeps && stateOf(world, t).sharedCount > 0;
      canRun += world.threads[t].phase != phase_t::sleeps && !done(world, t);
    }
    for (size_t t = 0; t < programs_.size(); ++t)
      if (world.threads[t].phase == phase_t::sleeps) {
        const bool wantsExclusive = programs_[t].steps[world.threads[t].next] == 'E';
        ASSERT_TRUE(inConflict(world, programs_, t, world.threads[t].arrived,
                               wantsExclusive ? access_t::exclusive : access_t::shared))
            << "thread " << t << " sleeps although nothing is in its way: " << describe(world);
      }
    if (asleep > 0 && canRun == 0) {
      ASSERT_GE(crossed, 2U) << "deadlock: " << describe(world);
      sawCrossed_ = true;
    }
  }

  void checkEnd(const world_t& world)
  {
    sawDone_ = true;
    for (const auto& [id, state] : world.rules.states())
      ASSERT_TRUE(state.sharedCount == 0 && state.exclusiveCount == 0 && !state.waiting && state.takenAt == 0);
  }

  // Everything that decides how a world can go on.
  std::string describe(const world_t& world) const
  {
    std::string text;
    for (size_t t = 0; t < programs_.size(); ++t) {
      const stateData state = stateOf(world, t);
      const modelThread_t& thread = world.threads[t];
      text +=
          programs_[t].steps + (programs_[t].patient ? "!" : "") + "@" + std::to_string(thread.next) +
          static_cast<char>(thread.phase) + (thread.phase == phase_t::sleeps ? std::to_string(int(thread.queue)) : "") +
          "S" + std::to_string(state.sharedCount) + "E" + std::to_string(state.exclusiveCount) +
          (state.waiting ? "W" : "") + (thread.arrived > 0 ? "L" + std::to_string(place(world, thread.arrived)) : "") +
          (world.rules.owner() == idOf(t) ? "O " : " ");
    }
    return text;
  }

  std::vector<program_t> programs_;
  std::vector<world_t> open_;
  std::unordered_set<std::string> seen_;
  bool sawCrossed_ = false;
  bool sawDone_ = false;
};

const std::vector<std::string> shortPrograms = {"Ee", "Ss", "SEes"};
const std::vector<std::string> allPrograms = {"Ee", "Ss", "EeSs", "EEee", "SSss", "ESse", "ESes", "SEes", "SEse"};

// Every choice of `count` programs, each with and without deadlines; order does not matter between like threads.
size_t walkAll(const std::vector<std::string>& texts, size_t count, std::vector<program_t> chosen = {}, size_t from = 0)
{
  if (chosen.size() == count) {
    walk_t walk(chosen);
    walk.run();
    return walk.worlds();
  }
  size_t worlds = 0;
  for (size_t i = from; i < texts.size() * 2 && !::testing::Test::HasFailure(); ++i) {
    auto next = chosen;
    next.push_back({texts[i / 2], i % 2 == 1});
    worlds += walkAll(texts, count, next, i);
  }
  return worlds;
}

TEST(LockModel, ThreeThreadsOnEveryProgram)
{
  EXPECT_GT(walkAll(allPrograms, 3), 100'000U);
}

TEST(LockModel, FourThreadsOnShortPrograms)
{
  EXPECT_GT(walkAll(shortPrograms, 4), 100'000U);
}

TEST(LockModel, UpgradersThatCrossAreFreedByTheirDeadlines)
{
  walk_t patient({{"SEes", true}, {"SEes", true}});
  patient.run();
  EXPECT_TRUE(patient.sawUpgradersCrossed());
  walk_t limited({{"SEes", false}, {"SEes", false}});
  limited.run();
  EXPECT_TRUE(limited.sawAllDone());
}

}  // namespace
