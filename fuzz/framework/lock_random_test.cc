// Eight threads that take, nest, upgrade, time out and release at random, while what must never happen is looked for.
//
//   ctest -R LockRandom                              two seconds
//   LOCK_RANDOM_SECONDS=60 lock_random_test          a minute; best in the tsan build
#include "tests/framework/lock_support.h"
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

using namespace lock_test;
using clock_type = std::chrono::steady_clock;

constexpr size_t threadCount = 8;

std::chrono::seconds duration()
{
  const char* const asked = std::getenv("LOCK_RANDOM_SECONDS");
  return std::chrono::seconds(asked ? std::atoi(asked) : 2);
}

// What the threads believe they hold, and the plain data that the lock guards: the thread sanitizer watches the latter.
struct shared_t {
  recursiveSharedMutex_t lock;
  std::array<std::atomic<int>, threadCount> shared{};
  std::array<std::atomic<int>, threadCount> exclusive{};
  int64_t guarded[2] = {0, 0};  // equal, except inside a write
  std::atomic<bool> stop{false};
  std::atomic<int64_t> worstLate_us{0};   // of takes that failed
  std::atomic<int64_t> worstSleep_us{0};  // of a thread that only sleeps: what the machine itself adds
  std::atomic<int64_t> taken{0}, failed{0}, upgradesFailed{0};
};

void raise(std::atomic<int64_t>& worst, int64_t value)
{
  int64_t seen = worst.load();
  while (seen < value && !worst.compare_exchange_weak(seen, value))
    ;
}

int64_t microseconds(clock_type::duration d)
{
  return std::chrono::duration_cast<std::chrono::microseconds>(d).count();
}

class worker_t {
public:
  worker_t(shared_t& all, size_t self) : all_(all), self_(self), random_(static_cast<unsigned>(self + 1)) {}

  void run()
  {
    while (!all_.stop)
      oneRound();
  }

private:
  int upTo(int most) { return std::uniform_int_distribution<>(0, most)(random_); }

  // Up to four nested holds, some of them upgrades, then all released in random order.
  void oneRound()
  {
    for (int depth = 0; depth <= upTo(3); ++depth)
      if (!(upTo(3) == 0 ? takeOneExclusive() : takeOneShared()))
        break;
    while (mine(all_.shared) + mine(all_.exclusive) > 0)
      releaseOne(mine(all_.exclusive) > 0 && (mine(all_.shared) == 0 || upTo(1) == 0));
    ASSERT_EQ(all_.lock.getCallerState().takenAt, 0);
  }

  int mine(const std::array<std::atomic<int>, threadCount>& holds) const { return holds[self_]; }

  bool takeOneExclusive()
  {
    const bool upgrade = mine(all_.shared) > 0 && mine(all_.exclusive) == 0;
    if (!take(takeExclusive)) {
      all_.upgradesFailed += upgrade;
      return false;
    }
    ++all_.exclusive[self_];
    for (size_t other = 0; other < threadCount; ++other)
      if (other != self_) {
        EXPECT_EQ(all_.shared[other] + all_.exclusive[other], 0) << "beside an exclusive holder";
      }
    ++all_.guarded[0];
    pause();
    ++all_.guarded[1];
    return true;
  }

  bool takeOneShared()
  {
    if (!take(takeShared))
      return false;
    ++all_.shared[self_];
    for (size_t other = 0; other < threadCount; ++other)
      if (other != self_) {
        EXPECT_EQ(all_.exclusive[other], 0) << "beside a reader";
      }
    pause();
    EXPECT_EQ(all_.guarded[0], all_.guarded[1]);
    return true;
  }

  template <typename Take>
  bool take(Take&& attempt)
  {
    const std::chrono::milliseconds wait(upTo(20) - 1);
    const auto deadline = clock_type::now() + wait;
    const bool taken = attempt(all_.lock, in(wait)) == outcome_t::taken;
    ++(taken ? all_.taken : all_.failed);
    if (!taken)
      raise(all_.worstLate_us, microseconds(clock_type::now() - std::max(deadline, deadline - wait)));
    return taken;
  }

  // The belief is withdrawn before the hold is.
  void releaseOne(bool exclusive)
  {
    --(exclusive ? all_.exclusive : all_.shared)[self_];
    exclusive ? all_.lock.unlock() : all_.lock.unlockShared();
  }

  void pause()
  {
    if (upTo(7) == 0)
      std::this_thread::sleep_for(std::chrono::microseconds(upTo(2000)));
  }

  shared_t& all_;
  const size_t self_;
  std::minstd_rand random_;
};

void measureSleeps(shared_t& all)
{
  while (!all.stop) {
    const auto until = clock_type::now() + 2ms;
    std::this_thread::sleep_until(until);
    raise(all.worstSleep_us, microseconds(clock_type::now() - until));
  }
}

TEST(LockRandom, EightThreadsKeepTheInvariants)
{
  shared_t all;
  std::vector<boost::thread> threads;
  threads.emplace_back([&] { measureSleeps(all); });
  for (size_t i = 0; i < threadCount; ++i)
    threads.emplace_back([&all, i] { worker_t(all, i).run(); });
  std::this_thread::sleep_for(duration());
  all.stop = true;
  for (auto& thread : threads)
    thread.join();

  EXPECT_EQ(all.lock.getStateMap().size(), 0U);  // all counts are back at zero, so no row outlived its thread
  EXPECT_TRUE(all.lock.timedLock(in(0ms)));
  all.lock.unlock();
  EXPECT_GT(all.taken, 100);
  EXPECT_GT(all.failed, 0);
  EXPECT_GT(all.upgradesFailed, 0);
  EXPECT_LE(all.worstLate_us, 50'000 + all.worstSleep_us);
  std::printf("taken %ld, failed %ld (upgrades %ld), latest failure %ld us, latest plain sleep %ld us\n",
              all.taken.load(), all.failed.load(), all.upgradesFailed.load(), all.worstLate_us.load(),
              all.worstSleep_us.load());
}

}  // namespace
