// The framework lock with real threads: who waits for whom, what a failed take says, whose row lives how long.
#include "tests/framework/lock_support.h"
#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

namespace {

using namespace lock_test;

// One reader queued behind a waiting writer, and the holder itself coming back at once: neither passes the writer. The
// threads race for the free lock, so once is not enough.
TEST(Lock, ReadersThatComeLaterDoNotPassAWaitingWriter)
{
  recursiveSharedMutex_t lock;
  for (int round = 0; round < 100; ++round) {
    actor_t writer, reader;
    std::atomic<bool> written = false;
    const auto readAfterIt = [&] {
      lock.timedLockShared(farAway());
      const bool after = written;
      lock.unlockShared();
      return after;
    };
    lock.timedLockShared(farAway());
    auto wrote = writer.start([&] { lock.timedLock(farAway()), written = true, lock.unlock(); });
    awaitWriter(lock, writer.id());
    auto queued = reader.start(readAfterIt);
    while (rowOf(lock, reader.id()).kernelThreadId == 0)
      std::this_thread::yield();
    lock.unlockShared();
    ASSERT_TRUE(readAfterIt()) << "the holder, round " << round;
    ASSERT_TRUE(queued.get()) << "the queued reader, round " << round;
    wrote.get();
  }
}

TEST(Lock, ReaderThatStoodBackEntersWhenTheWriterGivesUp)
{
  recursiveSharedMutex_t lock;
  actor_t writer, reader;
  lock.timedLockShared(farAway());
  auto written = writer.start([&] { return takeExclusive(lock, in(100ms)); });
  while (!rowOf(lock, writer.id()).waiting && written.wait_for(0s) != std::future_status::ready)
    std::this_thread::yield();
  auto read = reader.start([&] { return takeShared(lock, farAway()); });
  EXPECT_EQ(written.get(), outcome_t::failedOtherwise);
  EXPECT_EQ(read.wait_for(10s), std::future_status::ready);  // its own deadline is later
  EXPECT_EQ(read.get(), outcome_t::taken);
  reader.run([&] { lock.unlockShared(); });
  lock.unlockShared();
}

TEST(Lock, AFailedUpgradeSaysWhyAndKeepsItsSharedHold)
{
  recursiveSharedMutex_t lock;
  actor_t reader;
  reader.run([&] { lock.timedLockShared(farAway()); });
  lock.timedLockShared(farAway());
  try {
    lock.timedLock(in(20ms));
    ADD_FAILURE() << "beside a reader";
  } catch (const recursiveSharedMutex_t::lockError_t& error) {
    EXPECT_TRUE(error.exclusiveRequested);
    EXPECT_FALSE(error.exclusiveHeld);
    EXPECT_EQ(error.requester, boost::this_thread::get_id());
    EXPECT_EQ(error.owner, boost::thread::id());
    EXPECT_EQ(error.states.size(), 2U);
    const auto mine = error.states.at(error.requester);
    EXPECT_FALSE(mine.waiting);
    EXPECT_EQ(mine.sharedCount, 1);
    EXPECT_EQ(mine.kernelThreadId, gettid());
    EXPECT_EQ(mine.pthreadHandle, pthread_self());
    EXPECT_LE(time(nullptr) - mine.takenAt, 5);
  }
  reader.run([&] { lock.unlockShared(); });
  EXPECT_EQ(takeExclusive(lock, in(0ms)), outcome_t::taken);
}

TEST(Lock, UpgraderGoesBeforeWaitingWriter)
{
  recursiveSharedMutex_t lock;
  actor_t upgrader, writer;
  std::vector<std::string> order;  // under the lock itself
  upgrader.run([&] { lock.timedLockShared(farAway()); });
  lock.timedLockShared(farAway());
  auto wrote = writer.start([&] { lock.timedLock(farAway()), order.push_back("writer"), lock.unlock(); });
  awaitWriter(lock, writer.id());
  auto upgraded = upgrader.start(
      [&] { lock.timedLock(farAway()), order.push_back("upgrader"), lock.unlock(), lock.unlockShared(); });
  awaitWriter(lock, upgrader.id());
  lock.unlockShared();
  upgraded.get();
  wrote.get();
  EXPECT_THAT(order, testing::ElementsAre("upgrader", "writer"));
}

TEST(Lock, DeadlinesAtTheEdgesOfTheTimeType)
{
  namespace pt = boost::posix_time;
  recursiveSharedMutex_t lock;
  actor_t waiter;
  lock.timedLock(farAway());
  for (const boost::system_time over :
       {boost::system_time(pt::not_a_date_time), boost::system_time(pt::min_date_time)}) {
    EXPECT_EQ(waiter.run([&] { return takeExclusive(lock, over); }), outcome_t::failedExclusiveHeld);
    EXPECT_EQ(waiter.run([&] { return takeShared(lock, over); }), outcome_t::failedExclusiveHeld);
    EXPECT_EQ(rowOf(lock, waiter.id()).kernelThreadId, 0);  // a thread without holds that failed
  }
  auto waits = waiter.start([&] { return takeExclusive(lock, boost::system_time(pt::max_date_time)); });
  awaitWriter(lock, waiter.id());
  lock.unlock();
  EXPECT_EQ(waits.get(), outcome_t::taken);
}

TEST(Lock, WaitingIsNeitherInterruptedNorCancelled)
{
  recursiveSharedMutex_t lock;
  actor_t waiter;
  lock.timedLock(farAway());
  auto waits = waiter.start([&] { return takeExclusive(lock, farAway()); });
  awaitWriter(lock, waiter.id());
  waiter.thread().interrupt();
  EXPECT_EQ(waits.wait_for(20ms), std::future_status::timeout);
  lock.unlock();
  EXPECT_EQ(waits.get(), outcome_t::taken);
  waiter.run([&] { lock.unlock(); });

  lock.timedLock(farAway());
  std::promise<boost::thread::id> itsId;
  std::thread doomed([&] {  // boost::thread::join() does not return from a cancelled thread
    itsId.set_value(boost::this_thread::get_id());
    lock.timedLock(farAway());
    lock.unlock();
    pthread_testcancel();
  });
  awaitWriter(lock, itsId.get_future().get());
  pthread_cancel(doomed.native_handle());
  lock.unlock();
  doomed.join();
  EXPECT_EQ(waiter.run([&] { return takeExclusive(lock, in(0ms)); }), outcome_t::taken);
  waiter.run([&] { lock.unlock(); });
}

TEST(Lock, ReleaseWithoutTakeIsShownAndBlocksNobody)
{
  recursiveSharedMutex_t lock;
  actor_t careless, other;
  careless.run([&] { lock.unlock(), lock.unlockShared(); });
  EXPECT_EQ(rowOf(lock, careless.id()).exclusiveCount, -1);
  EXPECT_EQ(rowOf(lock, careless.id()).sharedCount, -1);
  EXPECT_EQ(other.run([&] { return takeExclusive(lock, in(0ms)); }), outcome_t::taken);
  EXPECT_EQ(careless.run([&] { return takeShared(lock, in(5ms)); }), outcome_t::failedExclusiveHeld);
  other.run([&] { lock.unlock(); });
}

TEST(Lock, AThreadMayOutliveALockAndMeetAnotherOneInItsPlace)
{
  actor_t survivor;
  for (int i = 0; i < 3; ++i) {
    const auto shortLived = std::make_unique<recursiveSharedMutex_t>();
    survivor.run([&] { shortLived->timedLock(farAway()), shortLived->unlock(); });
    EXPECT_EQ(shortLived->getStateMap().size(), 1U);
  }
}

// Thread ids are addresses of stacks, and stacks are used again: ends a thread that holds, and starts threads until one
// has its id.
TEST(Lock, NextOwnerOfADeadHoldersIdInheritsNothing)
{
  recursiveSharedMutex_t lock;
  boost::thread::id deadId;
  int32_t deadKernelId = 0;
  boost::thread([&] {
    lock.timedLock(farAway());
    deadId = boost::this_thread::get_id();
    deadKernelId = gettid();
  }).join();
  EXPECT_EQ(rowOf(lock, deadId).kernelThreadId, deadKernelId);
  EXPECT_EQ(rowOf(lock, deadId).exclusiveCount, 1);

  bool met = false;
  for (int i = 0; i < 100 && !met; ++i)
    boost::thread([&] {
      met = boost::this_thread::get_id() == deadId;
      if (met) {
        EXPECT_EQ(takeShared(lock, in(5ms)), outcome_t::failedExclusiveHeld);
      }
    }).join();
  if (!met)
    GTEST_SKIP() << "the thread library did not use the id again";
  const auto states = lock.getStateMap();
  EXPECT_FALSE(states.contains(deadId));
  const auto nobody = states.find(boost::thread::id());
  ASSERT_NE(nobody, states.end());
  EXPECT_EQ(nobody->second.exclusiveCount, 1);
  EXPECT_EQ(nobody->second.kernelThreadId, deadKernelId);
}

// An object that uses the lock while its thread's objects are destroyed, after the lock has seen the thread end.
TEST(Lock, TakesWhileTheThreadEnds)
{
  static recursiveSharedMutex_t& lock = *new recursiveSharedMutex_t;
  struct late_t {
    ~late_t()
    {
      for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(takeExclusive(lock, in(0ms)), outcome_t::taken);
        EXPECT_TRUE(lock.timedLockShared(in(0ms)));
        lock.unlockShared();
        lock.unlock();
      }
    }
  };
  for (int i = 0; i < 20; ++i)
    boost::thread([] {
      static thread_local late_t late;
      (void)&late;  // made first, so destroyed last
      lock.timedLock(farAway()), lock.unlock();
    }).join();
  EXPECT_EQ(takeExclusive(lock, in(0ms)), outcome_t::taken);
  lock.unlock();
  EXPECT_LE(lock.getStateMap().size(), 5U);
}

}  // namespace
