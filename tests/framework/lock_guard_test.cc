// The scope classes and the supervision of the framework lock, with the log, the self debugger and the clock played by
// the test.
#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/lock/supervisor.h"
#include "rte/BLL/core/thread_registry.h"
#include "tests/framework/lock_support.h"
#include "tests/support/played_clock.h"
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

namespace {

using namespace lock_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
namespace pt = boost::posix_time;
using lockError_t = recursiveSharedMutex_t::lockError_t;
using exclusiveLock_t = BLLManager::exclusiveLock_t;
using sharedLock_t = BLLManager::sharedLock_t;

struct played_t {
  std::mutex mutex;
  std::vector<std::string> lines;  // "<level> <text>"
  std::vector<int32_t> dumped;
  std::atomic<bool> backtraces{false}, dumpWorks{true};
  std::atomic<int64_t> now{1000};
};
played_t played;

class LockGuard : public testing::Test {
protected:
  void SetUp() override
  {
    played.lines.clear();
    played.dumped.clear();
    played.backtraces = false;
    played.dumpWorks = true;
    played.now += 1'000'000;  // out of the reach of every earlier test
    before_ = lockSeam();
    lockSeam() = {[](LogImpl::logLevel_t level, const std::string& text) {
                    const std::lock_guard guard(played.mutex);
                    played.lines.push_back(std::to_string(static_cast<int>(level)) + text);
                  },
                  [] { return played.backtraces.load(); },
                  [](int32_t thread) {
                    played.dumped.push_back(thread);
                    return played.dumpWorks.load();
                  },
                  [] { return played.now.load(); }};
    BLLManager::lock_t::lockingPeriod = pt::milliseconds(20);
    BLLManager::actLock_t::actLockingPeriod = pt::milliseconds(20);
  }
  void TearDown() override
  {
    lockSeam() = before_;
    BLLManager::lockDebug = false;
  }
  static std::vector<std::string> takeLines()
  {
    const std::lock_guard guard(played.mutex);
    return std::exchange(played.lines, {});
  }
  // "1E 2S": what the calling thread holds.
  static std::string held()
  {
    const auto mine = BLLManager::lock.getCallerState();
    return std::to_string(mine.exclusiveCount) + "E " + std::to_string(mine.sharedCount) + "S";
  }
  // Fails on the calling thread, and says how it is reported.
  static std::vector<std::string> failToRead()
  {
    BLLManager::lock_t::lockingPeriod = pt::milliseconds(1);
    testing::internal::CaptureStderr();
    const sharedLock_t guard;
    EXPECT_FALSE(guard.isLocked());
    lastStderr = testing::internal::GetCapturedStderr();
    return takeLines();
  }
  static inline std::string lastStderr;

private:
  lockSeam_t before_{};
};

// Whoever wrote for a plain time duration need not know that other threads change this one.
TEST(LockPeriod, BehavesAsATimeDuration)
{
  const auto compared = [](const auto& a, const auto& b) {
    return std::array{a<b, a <= b, a> b, a >= b, a == b, a != b};
  };
  const lockPeriod_t periods[] = {lockPeriod_t(1), lockPeriod_t(2)};
  for (const int a : {0, 1})
    for (const int b : {0, 1}) {
      EXPECT_EQ(compared(periods[a], periods[b]), compared(a, b)) << a << b;
      EXPECT_EQ(compared(periods[a], periods[b].get()), compared(a, b)) << a << b;
      EXPECT_EQ(compared(periods[a].get(), periods[b]), compared(a, b)) << a << b;
    }
  lockPeriod_t period(0);
  period = pt::minutes(5);
  EXPECT_TRUE(period + pt::minutes(1) == pt::minutes(6) && pt::minutes(6) - period == pt::minutes(1));
  EXPECT_TRUE(period * 2 / 5 == pt::minutes(2) && -period == pt::minutes(-5) && period - periods[0] < period);
  EXPECT_EQ(pt::ptime(pt::min_date_time) + period, pt::ptime(pt::min_date_time) + pt::minutes(5));
  std::ostringstream told;
  for (const pt::time_duration& value :
       {pt::time_duration(1, 2, 3, 4), pt::time_duration(0, 0, -90), pt::time_duration(pt::pos_infin),
        pt::time_duration(pt::neg_infin), pt::time_duration(pt::not_a_date_time)}) {
    period = value;
    told << period.is_negative() << period.is_special() << period.is_pos_infinity() << period.is_neg_infinity()
         << period.is_not_a_date_time() << " " << period.wholeSeconds() << "\n";
    if (!period.is_special())
      told << period.hours() << " " << period.minutes() << " " << period.seconds() << " " << period.fractional_seconds()
           << " " << period.total_seconds() << " " << period.total_milliseconds() << " " << period.total_microseconds()
           << " " << period.total_nanoseconds() << " " << period.ticks() << "\n";
  }
  EXPECT_EQ(told.str(), "00000 3723\n1 2 3 4 3723 3723000 3723000004 3723000004000 3723000004\n"
                        "10000 -90\n0 -1 -30 0 -90 -90000 -90000000 -90000000000 -90000000\n"
                        "01100 9223372036854775807\n11010 -9223372036854775808\n01001 0\n");
}

TEST_F(LockGuard, TakesAndReleasesWithItsScope)
{
  {
    exclusiveLock_t outer;
    EXPECT_TRUE(outer.isLocked());
    const sharedLock_t inner;
    EXPECT_EQ(held(), "1E 1S");
    outer.unlock();
    EXPECT_FALSE(outer.isLocked());
    EXPECT_TRUE(outer.lock());
    EXPECT_TRUE(outer.lock());  // one hold a guard
    EXPECT_EQ(held(), "1E 1S");
  }
  EXPECT_EQ(held(), "0E 0S");
  EXPECT_THAT(takeLines(), IsEmpty());
}

TEST_F(LockGuard, MarksEveryTakeAndReleaseWhenAsked)
{
  BLLManager::lockDebug = true;
  EXPECT_TRUE(exclusiveLock_t().isLocked());
  EXPECT_TRUE(sharedLock_t().isLocked());
  EXPECT_TRUE(BLLManager::actExclusiveLock_t().isLocked());
  EXPECT_TRUE(BLLManager::actSharedLock_t().isLocked());
  EXPECT_THAT(takeLines(), ElementsAre("1 [+EL", "1] ", "1 [-EL", "1] ", "1 [+SL", "1] ", "1 [-SL", "1] ", "1 [+AEL",
                                       "1] ", "1 [-AEL", "1] ", "1 [+ASL", "1] ", "1 [-ASL", "1] "));
  actor_t holder;
  holder.run([] { BLLManager::lock.timedLock(farAway()); });
  const auto lines = failToRead();
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[0], "1 [+SL");
  EXPECT_EQ(lines[1], "0 Error] ");
  takeLines();
  holder.run([] { BLLManager::lock.unlock(); });
  sharedLock_t guard;
  guard.unlock();
  takeLines();
  guard.unlock();  // asked for, although nothing is locked
  EXPECT_THAT(takeLines(), ElementsAre("1 [-SL", "1] "));
}

TEST_F(LockGuard, AThreadCancelledInTheTraceLeavesNothingTaken)
{
  BLLManager::lockDebug = true;
  lockSeam().log = [](LogImpl::logLevel_t, const std::string&) { pthread_testcancel(); };
  pthread_t thread;
  const auto takeAndDie = [](void*) -> void* {
    pthread_cancel(pthread_self());
    {
      const exclusiveLock_t guard;
    }
    pthread_testcancel();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, nullptr, takeAndDie, nullptr), 0);
  void* result = nullptr;
  pthread_join(thread, &result);
  EXPECT_EQ(result, PTHREAD_CANCELED);
  BLLManager::lockDebug = false;
  EXPECT_TRUE(exclusiveLock_t().isLocked());
}

TEST_F(LockGuard, TheTwoLocksAreIndependent)
{
  actor_t other;
  const exclusiveLock_t guard;
  EXPECT_TRUE(other.run([] { return BLLManager::actExclusiveLock_t().isLocked(); }));
  const BLLManager::actSharedLock_t act;
  EXPECT_FALSE(other.run([] { return BLLManager::actExclusiveLock_t().isLocked(); }));
  EXPECT_EQ(pt::time_duration(BLLManager::actLock_t::actLockingPeriod), pt::minutes(5));  // reset by its own report
  EXPECT_EQ(pt::time_duration(BLLManager::lock_t::lockingPeriod), pt::milliseconds(20));
}

TEST_F(LockGuard, PeriodsAtTheEdgesOfTheTimeType)
{
  actor_t holder;
  holder.run([] { BLLManager::lock.timedLock(farAway()); });
  const std::vector<pt::time_duration> noTime = {pt::neg_infin, pt::not_a_date_time, pt::seconds(-5),
                                                 pt::hours(-900000000)};
  for (const auto& period : noTime) {
    BLLManager::lock_t::lockingPeriod = period;
    EXPECT_EQ(pt::time_duration(BLLManager::lock_t::lockingPeriod), period);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(exclusiveLock_t().isLocked());
    testing::internal::GetCapturedStderr();
  }
  actor_t waiter;
  for (const pt::time_duration& period : {pt::time_duration(pt::pos_infin), pt::time_duration(pt::hours(900000000))}) {
    BLLManager::lock_t::lockingPeriod = period;
    auto waits = waiter.start([] { return exclusiveLock_t().isLocked(); });
    awaitWriter(BLLManager::lock, waiter.id());
    holder.run([] { BLLManager::lock.unlock(); });
    EXPECT_TRUE(waits.get());
    holder.run([] { BLLManager::lock.timedLock(farAway()); });
  }
  holder.run([] { BLLManager::lock.unlock(); });
}

TEST_F(LockGuard, UnlocksToOneAndRestores)
{
  {
    sharedLock_t reader;
    const sharedLock_t again;
    for (const bool ofTheOtherKind : {false, true}) {
      EXPECT_TRUE(reader.unlockToOne());
      EXPECT_EQ(held(), "0E 1S");
      if (ofTheOtherKind) {
        BLLManager::lock.unlockShared();
        BLLManager::lock.timedLock(farAway());
      }
      EXPECT_TRUE(reader.restoreUnlockedToOne());
      EXPECT_EQ(held(), "0E 2S");
    }
  }
  exclusiveLock_t first;
  const exclusiveLock_t second;
  sharedLock_t third;
  EXPECT_FALSE(first.restoreUnlockedToOne());
  EXPECT_TRUE(first.unlockToOne());
  EXPECT_FALSE(first.unlockToOne());
  EXPECT_EQ(held(), "1E 0S");
  {
    const sharedLock_t more;
    EXPECT_FALSE(first.restoreUnlockedToOne());
  }
  // What the one hold is for: give it up for a while.
  BLLManager::lock.unlock();
  EXPECT_FALSE(first.restoreUnlockedToOne());  // nothing held
  actor_t other;
  EXPECT_TRUE(other.run([] { return exclusiveLock_t().isLocked(); }));
  BLLManager::lock.timedLock(farAway());
  EXPECT_TRUE(first.restoreUnlockedToOne());
  EXPECT_EQ(held(), "2E 1S");
  third.unlock();
  EXPECT_FALSE(third.unlockToOne());
  EXPECT_TRUE(first.unlockToOne());
  BLLManager::lock.unlock();
  BLLManager::lock.timedLockShared(farAway());  // of the other kind, and too much
  EXPECT_TRUE(first.restoreUnlockedToOne());
  EXPECT_EQ(held(), "2E 0S");
  EXPECT_FALSE(other.run([] { return sharedLock_t().isLocked(); }));
}

TEST_F(LockGuard, RestoreOfAnUpgradeFailsWhileOthersReadAndCanBeTriedAgain)
{
  sharedLock_t first;
  const exclusiveLock_t second;
  const sharedLock_t third;
  EXPECT_TRUE(first.unlockToOne());
  EXPECT_EQ(held(), "0E 1S");
  actor_t reader;
  reader.run([] { BLLManager::lock.timedLockShared(farAway()); });
  testing::internal::CaptureStderr();
  EXPECT_FALSE(first.restoreUnlockedToOne());
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("failed to get exclusive lock.\n"));
  EXPECT_EQ(held(), "0E 1S");
  EXPECT_TRUE(first.isUnlockedToOne());
  reader.run([] { BLLManager::lock.unlockShared(); });
  EXPECT_TRUE(first.restoreUnlockedToOne());
  EXPECT_EQ(held(), "1E 2S");
}

TEST_F(LockGuard, ReportTellsWhoHoldsItAndIsNotRepeatedTooSoon)
{
  actor_t holder, second;
  holder.run([] {
    threadRegistry_t::instance().registerThread("holder");
    BLLManager::lock.timedLock(farAway());
  });
  threadRegistry_t::instance().registerThread("asker");
  takeLines();
  auto lines = failToRead();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0], "0" + lastStderr);
  const std::string rule(90, '-');
  EXPECT_THAT(
      lastStderr,
      MatchesRegex("\n\\*\\*\\* LOCK EXCEPTION: \\[asker; 0x[0-9a-f]+; [1-9][0-9]*; 0x[0-9a-f]+\\] failed to get "
                   "shared lock.\nDump of exclusive/shared lock holders and exclusive lock waiters:\n" +
                   rule +
                   "\nseconds \\| shared \\| exclusive \\| wait_excl \\| thread::id \\|     pid_t \\|  pthread_t "
                   "\\| name\n" +
                   rule +
                   "\n *[0-9] \\|      0 \\|         1 \\|         0 \\| 0x[0-9a-f]+ \\| +[1-9][0-9]* \\| "
                   "0x[0-9a-f]+ \\| holder\n"));
  EXPECT_EQ(pt::time_duration(BLLManager::lock_t::lockingPeriod), pt::minutes(5));

  const std::string again = "0ERROR: The same lock exception is still active.\n";
  const auto repeatedAfter = [&](int64_t seconds) {
    played.now += seconds;
    return failToRead() == std::vector<std::string>{again};
  };
  EXPECT_TRUE(repeatedAfter(44));
  EXPECT_FALSE(repeatedAfter(1));  // reported at 45 s; next after 90
  EXPECT_TRUE(repeatedAfter(89));
  EXPECT_FALSE(repeatedAfter(1));  // next after 180
  EXPECT_TRUE(repeatedAfter(179));
  second.run([&] { EXPECT_FALSE(repeatedAfter(0)); });  // somebody else's is another failure
  EXPECT_FALSE(repeatedAfter(0));
  EXPECT_TRUE(repeatedAfter(0));
  holder.run([] { BLLManager::lock.timedLock(farAway()); });
  EXPECT_FALSE(repeatedAfter(0));  // another depth is another failure, and the interval starts over
  EXPECT_FALSE(repeatedAfter(45));
  holder.run([] { BLLManager::lock.unlock(), BLLManager::lock.unlock(); });
  threadRegistry_t::instance().unregisterThread();
  holder.run([] { threadRegistry_t::instance().unregisterThread(); });
}

TEST_F(LockGuard, StacksOfThreadsThatHoldTooLong)
{
  recursiveSharedMutex_t::stateMap_t states;
  actor_t holder;
  constexpr time_t now = 2'000'000'000;
  clock_stand(CLOCK_REALTIME, now);
  states[holder.id()] = {1, 0, false, 4711, 0, now - 10};
  states[boost::this_thread::get_id()] = {0, 1, false, 4712, 0, now - 9};
  states[boost::thread::id()] = {0, 0, true, 4713, 0, 0};
  BLLManager::lock_t::lockingPeriod = pt::seconds(10);
  BLLManager::reportProblematicThreads(states);
  EXPECT_THAT(takeLines(), IsEmpty());  // reports are off
  played.backtraces = true;
  BLLManager::reportProblematicThreads(states);
  EXPECT_THAT(takeLines(), ElementsAre("0\nError: thread  is holding a lock for too long (10 seconds). "
                                       "Dumping the thread's backtrace...\n"));
  EXPECT_THAT(played.dumped, ElementsAre(4711));
  played.now += 25;  // 10 * 8 / 3 is 26
  BLLManager::reportProblematicThreads(states);
  EXPECT_THAT(takeLines(), IsEmpty());
  played.now += 1;
  played.dumpWorks = false;
  BLLManager::reportProblematicThreads(states);
  EXPECT_THAT(takeLines(), ElementsAre(testing::_, "0Error reporting thread's backtrace."));
  clock_stand(CLOCK_REALTIME, 0);
}

TEST_F(LockGuard, LockCheckReportsAccessWithoutTheHoldItNeeds)
{
  EXPECT_FALSE(BLLManager::lockCheck(lockType::read));
  EXPECT_THAT(takeLines(), ElementsAre(MatchesRegex("0Lock access violation:\n Access: Read Shared taken: 0 Exclusive "
                                                    "taken: 0\nthread::id \\| pid_t \\| pthread_t \\| name\n0x.*\n")));
  {
    const sharedLock_t guard;
    EXPECT_TRUE(BLLManager::lockCheck(lockType::read));
    EXPECT_FALSE(BLLManager::lockCheck(lockType::write));
    EXPECT_THAT(takeLines(), ElementsAre(HasSubstr("Access: Write Shared taken: 1 Exclusive taken: 0\n")));
  }
  const exclusiveLock_t guard;
  EXPECT_TRUE(BLLManager::lockCheck(lockType::read) && BLLManager::lockCheck(lockType::write));
}

TEST_F(LockGuard, DeadlockTestDelaysExclusiveTakes)
{
  std::ostringstream out;
  BLLManager::bllDeadlockTest(true, out);
  const auto started = std::chrono::steady_clock::now();
  for (int i = 0; i < 50; ++i)
    const exclusiveLock_t guard;
  const auto took = std::chrono::steady_clock::now() - started;
  BLLManager::bllDeadlockTest(false, out);
  EXPECT_EQ(out.str(), "Deadlock test started.\nDeadlock test stopped.\n");
  EXPECT_GT(took, 20ms);  // 125 ms on average
}

TEST(ThreadRegistry, NamesTheLivingNotTheNextOwnersOfTheirIds)
{
  auto& registry = threadRegistry_t::instance();
  registry.registerThread("main");
  registry.visit([](const threadRegistry_t::threads_t& threads) {
    const auto self = boost::this_thread::get_id();
    EXPECT_EQ(threadRegistry_t::nameOf(threads, self, 0), "main");
    EXPECT_EQ(threadRegistry_t::nameOf(threads, self, gettid()), "main");
    EXPECT_EQ(threadRegistry_t::nameOf(threads, self, 1), "");
    EXPECT_EQ(threadRegistry_t::nameOf(threads, boost::thread::id(), gettid()), "main");
  });
  registry.unregisterThread();
  registry.unregisterThread();
  registry.visit([](const threadRegistry_t::threads_t& threads) { EXPECT_TRUE(threads.empty()); });
}

}  // namespace
