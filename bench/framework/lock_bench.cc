// The framework lock beside std::recursive_mutex and boost::shared_mutex, in one run, with the ratios at the end.
//
//   lock_bench --benchmark_repetitions=15 --benchmark_min_time=0.1 --benchmark_enable_random_interleaving=true
//
// An iteration is one take and its release. A parked thread keeps the process multi-threaded throughout: a process with
// one thread gets cheaper mutexes from the C library, and the cases would not compare. "deadline" cases are handed a
// deadline computed beforehand; "period" cases compute one at every take, which is what a scope class does.
#include "rte/BLL/core/bll_manager.h"
#include <algorithm>
#include <atomic>
#include <benchmark/benchmark.h>
#include <boost/thread/shared_mutex.hpp>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <future>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using boost::posix_time::seconds;

const boost::system_time& farDeadline()
{
  static const boost::system_time far = boost::get_system_time() + boost::posix_time::hours(10);
  return far;
}

// Threads that have asked for a lock once and now sleep: each has a row in the state map.
class parked_t {
public:
  parked_t(size_t count, recursiveSharedMutex_t& lock)
  {
    for (size_t i = 0; i < count; ++i) {
      std::promise<void> hasRow;
      auto ready = hasRow.get_future();
      threads_.emplace_back([&lock, &hasRow, go = go_] {
        lock.timedLockShared(farDeadline());
        lock.unlockShared();
        hasRow.set_value();
        go.wait();
      });
      ready.wait();
    }
  }
  ~parked_t()
  {
    stop_.set_value();
    for (auto& thread : threads_)
      thread.join();
  }

private:
  std::promise<void> stop_;
  std::shared_future<void> go_{stop_.get_future().share()};
  std::vector<std::thread> threads_;
};

recursiveSharedMutex_t& oneRow()
{
  static recursiveSharedMutex_t lock;
  return lock;
}
recursiveSharedMutex_t& manyRows()
{
  static recursiveSharedMutex_t lock;
  static const parked_t parked(64, lock);
  return lock;
}

std::recursive_mutex recursive;
boost::shared_mutex shared;

// The framework lock with 64 further rows from the first use on.
recursiveSharedMutex_t& frameworkLock()
{
  static const parked_t parked(64, BLLManager::lock);
  return BLLManager::lock;
}

template <typename Pair>
void repeat(benchmark::State& state, Pair&& pair)
{
  for (auto _ : state)
    pair();
}

void std_recursive(benchmark::State& state)
{
  repeat(state, [] { recursive.lock(), recursive.unlock(); });
}
void boost_exclusive(benchmark::State& state)
{
  repeat(state, [] { shared.lock(), shared.unlock(); });
}
void boost_shared(benchmark::State& state)
{
  repeat(state, [] { shared.lock_shared(), shared.unlock_shared(); });
}
void boost_exclusive_deadline(benchmark::State& state)
{
  repeat(state, [&] { shared.timed_lock(farDeadline()), shared.unlock(); });
}
void boost_shared_deadline(benchmark::State& state)
{
  repeat(state, [&] { shared.timed_lock_shared(farDeadline()), shared.unlock_shared(); });
}
void boost_exclusive_period(benchmark::State& state)
{
  repeat(state, [] { shared.timed_lock(seconds(300)), shared.unlock(); });
}
void boost_shared_period(benchmark::State& state)
{
  repeat(state, [] { shared.timed_lock_shared(seconds(300)), shared.unlock_shared(); });
}

void takeExclusive(benchmark::State& state, recursiveSharedMutex_t& lock)
{
  repeat(state, [&] { lock.timedLock(farDeadline()), lock.unlock(); });
}
void takeShared(benchmark::State& state, recursiveSharedMutex_t& lock)
{
  repeat(state, [&] { lock.timedLockShared(farDeadline()), lock.unlockShared(); });
}
void lock_exclusive_deadline(benchmark::State& state)
{
  takeExclusive(state, oneRow());
}
void lock_shared_deadline(benchmark::State& state)
{
  takeShared(state, oneRow());
}
void lock_exclusive_deadline_64_rows(benchmark::State& state)
{
  takeExclusive(state, manyRows());
}
void lock_shared_deadline_64_rows(benchmark::State& state)
{
  takeShared(state, manyRows());
}
void lock_reentry_deadline(benchmark::State& state)
{
  oneRow().timedLock(farDeadline());
  takeExclusive(state, oneRow());
  oneRow().unlock();
}
void lock_reentry_deadline_64_rows(benchmark::State& state)
{
  manyRows().timedLock(farDeadline());
  takeExclusive(state, manyRows());
  manyRows().unlock();
}

// The scope classes: the lock with its supervision.
void guard_exclusive(benchmark::State& state)
{
  repeat(state, [] { const BLLManager::exclusiveLock_t guard; });
}
void guard_shared(benchmark::State& state)
{
  repeat(state, [] { const BLLManager::sharedLock_t guard; });
}
void guard_reentry(benchmark::State& state)
{
  const BLLManager::exclusiveLock_t outer;
  guard_exclusive(state);
}
void guard_exclusive_64_rows(benchmark::State& state)
{
  frameworkLock();
  guard_exclusive(state);
}
void guard_shared_64_rows(benchmark::State& state)
{
  frameworkLock();
  guard_shared(state);
}
void guard_reentry_64_rows(benchmark::State& state)
{
  frameworkLock();
  guard_reentry(state);
}

BENCHMARK(guard_exclusive);  // before the 64 rows come
BENCHMARK(guard_shared);
BENCHMARK(guard_reentry);
BENCHMARK(guard_exclusive_64_rows);
BENCHMARK(guard_shared_64_rows);
BENCHMARK(guard_reentry_64_rows);
BENCHMARK(std_recursive);
BENCHMARK(boost_exclusive);
BENCHMARK(boost_shared);
BENCHMARK(boost_exclusive_deadline);
BENCHMARK(boost_shared_deadline);
BENCHMARK(boost_exclusive_period);
BENCHMARK(boost_shared_period);
BENCHMARK(lock_exclusive_deadline);
BENCHMARK(lock_shared_deadline);
BENCHMARK(lock_reentry_deadline);
BENCHMARK(lock_exclusive_deadline_64_rows);
BENCHMARK(lock_shared_deadline_64_rows);
BENCHMARK(lock_reentry_deadline_64_rows);

void readers8_boost_deadline(benchmark::State& state)
{
  boost_shared_deadline(state);
}
void readers8_lock_deadline(benchmark::State& state)
{
  takeShared(state, oneRow());
}
BENCHMARK(readers8_boost_deadline)->Threads(8)->UseRealTime();
BENCHMARK(readers8_lock_deadline)->Threads(8)->UseRealTime();

void readers8_boost_period(benchmark::State& state)
{
  boost_shared_period(state);
}
void readers8_guard(benchmark::State& state)
{
  guard_shared(state);
}
BENCHMARK(readers8_boost_period)->Threads(8)->UseRealTime();
BENCHMARK(readers8_guard)->Threads(8)->UseRealTime();

// Thread 0 writes, seven read.
void mixed8_boost_deadline(benchmark::State& state)
{
  state.thread_index() == 0 ? boost_exclusive_deadline(state) : boost_shared_deadline(state);
}
void mixed8_lock_deadline(benchmark::State& state)
{
  state.thread_index() == 0 ? takeExclusive(state, oneRow()) : takeShared(state, oneRow());
}
BENCHMARK(mixed8_boost_deadline)->Threads(8)->UseRealTime();
BENCHMARK(mixed8_lock_deadline)->Threads(8)->UseRealTime();

void mixed8_boost_period(benchmark::State& state)
{
  state.thread_index() == 0 ? boost_exclusive_period(state) : boost_shared_period(state);
}
void mixed8_guard(benchmark::State& state)
{
  state.thread_index() == 0 ? guard_exclusive(state) : guard_shared(state);
}
BENCHMARK(mixed8_boost_period)->Threads(8)->UseRealTime();
BENCHMARK(mixed8_guard)->Threads(8)->UseRealTime();

// How long one writer waits while others do nothing but read: each holds for a millisecond, asleep, and comes back at
// once. A lock under which the writer waits for more than the holds of those inside lets late readers pass it. No wait
// is longer than `longestWait`, since some would have no end.
constexpr std::chrono::milliseconds longestWait(500);

boost::system_time soon()
{
  return boost::get_system_time() + boost::posix_time::milliseconds(longestWait.count());
}

class frameworkLock_t {
public:
  bool write()
  {
    try {
      return mutex_.timedLock(soon());
    } catch (const recursiveSharedMutex_t::lockError_t&) {
      return false;
    }
  }
  void unlock() { mutex_.unlock(); }
  void lock_shared() { mutex_.timedLockShared(farDeadline()); }
  void unlock_shared() { mutex_.unlockShared(); }

private:
  recursiveSharedMutex_t mutex_;
};

class boostLock_t : public boost::shared_mutex {
public:
  bool write() { return timed_lock(soon()); }
};

// A plain line: everyone in the order of coming, neighbouring readers together.
class fairQueue_t {
public:
  bool write()
  {
    std::unique_lock guard(mutex_);
    const uint64_t turn = last_++;
    changed_.wait(guard, [&] { return turn == next_ && readers_ == 0; });
    return true;
  }
  void unlock()
  {
    const std::lock_guard guard(mutex_);
    ++next_;
    changed_.notify_all();
  }
  void lock_shared()
  {
    std::unique_lock guard(mutex_);
    const uint64_t turn = last_++;
    changed_.wait(guard, [&] { return turn == next_; });
    ++next_;
    ++readers_;
    changed_.notify_all();
  }
  void unlock_shared()
  {
    const std::lock_guard guard(mutex_);
    if (--readers_ == 0)
      changed_.notify_all();
  }

private:
  std::mutex mutex_;
  std::condition_variable changed_;
  uint64_t next_ = 0, last_ = 0;
  int readers_ = 0;  // inside
};

template <typename Lock>
class readersInALoop_t {
public:
  readersInALoop_t(int64_t count, Lock& lock)
  {
    for (int64_t i = 0; i < count; ++i)
      threads_.emplace_back([this, &lock] {
        while (!stop_) {
          lock.lock_shared();
          std::this_thread::sleep_for(std::chrono::milliseconds(1));
          lock.unlock_shared();
        }
      });
  }
  ~readersInALoop_t()
  {
    stop_ = true;
    for (auto& thread : threads_)
      thread.join();
  }

private:
  std::atomic<bool> stop_ = false;
  std::vector<std::thread> threads_;
};

// One iteration is 200 takes, or as many as three seconds hold.
template <typename Lock>
void writer_waits(benchmark::State& state)
{
  using clock = std::chrono::steady_clock;
  Lock lock;
  const readersInALoop_t<Lock> readers(state.range(0), lock);
  std::vector<double> waits;
  const auto end = clock::now() + std::chrono::seconds(3);
  for (auto _ : state)
    while (waits.size() < 200 && clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(3));
      const auto asked = clock::now();
      if (lock.write())
        lock.unlock();
      waits.push_back(std::chrono::duration<double, std::milli>(clock::now() - asked).count());
    }
  std::ranges::sort(waits);
  state.counters["median_ms"] = waits[waits.size() / 2];
  state.counters["worst_ms"] = waits.back();
  state.counters["takes"] = static_cast<double>(waits.size());
}
BENCHMARK(writer_waits<frameworkLock_t>)->Arg(1)->Arg(4)->Arg(64)->Iterations(1);
BENCHMARK(writer_waits<boostLock_t>)->Arg(1)->Arg(4)->Arg(64)->Iterations(1);
BENCHMARK(writer_waits<fairQueue_t>)->Arg(1)->Arg(4)->Arg(64)->Iterations(1);

// Which case is held against which, and the most that its time may be of the other's.
struct ratio_t {
  const char* ours;
  const char* theirs;
  double most;  // 0: stated without a target
};
constexpr ratio_t ratios[] = {
    {"lock_exclusive_deadline", "std_recursive", 0},
    {"lock_exclusive_deadline", "boost_exclusive", 0},
    {"lock_exclusive_deadline", "boost_exclusive_deadline", 1},
    {"lock_shared_deadline", "boost_shared_deadline", 1},
    {"lock_reentry_deadline", "boost_exclusive_deadline", 1},
    {"lock_exclusive_deadline_64_rows", "boost_exclusive_deadline", 1},
    {"lock_shared_deadline_64_rows", "boost_shared_deadline", 1},
    {"lock_reentry_deadline_64_rows", "boost_exclusive_deadline", 1},
    {"guard_exclusive", "boost_exclusive_period", 1},
    {"guard_shared", "boost_shared_period", 1},
    {"guard_reentry", "boost_exclusive_period", 1},
    {"guard_exclusive_64_rows", "boost_exclusive_period", 1},
    {"guard_shared_64_rows", "boost_shared_period", 1},
    {"guard_reentry_64_rows", "boost_exclusive_period", 1},
    {"readers8_lock_deadline", "readers8_boost_deadline", 1},
    {"readers8_guard", "readers8_boost_period", 1},
    {"mixed8_lock_deadline", "mixed8_boost_deadline", 0},
    {"mixed8_guard", "mixed8_boost_period", 0},
};

// The usual output, and the times of each case kept: of several repetitions the median counts.
class keepTimes_t : public benchmark::ConsoleReporter {
public:
  void ReportRuns(const std::vector<Run>& runs) override
  {
    for (const Run& run : runs)
      if (run.run_type == Run::RT_Iteration)
        times_[run.run_name.function_name].push_back(run.GetAdjustedRealTime());
    ConsoleReporter::ReportRuns(runs);
  }
  void printRatios() const
  {
    std::printf("\n%-34s %-26s %8s %8s %6s\n", "time of", "beside", "ns", "ns", "ratio");
    for (const ratio_t& row : ratios) {
      if (!times_.contains(row.ours) || !times_.contains(row.theirs))
        continue;
      const double ours = median(row.ours), theirs = median(row.theirs), ratio = ours / theirs;
      std::printf("%-34s %-26s %8.1f %8.1f %6.2f %s\n", row.ours, row.theirs, ours, theirs, ratio,
                  row.most == 0 ? "" : (ratio <= row.most ? "target met" : "TARGET MISSED"));
    }
  }

private:
  double median(const char* name) const
  {
    auto times = times_.at(name);
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
  }
  std::map<std::string, std::vector<double>> times_;
};

}  // namespace

int main(int argc, char** argv)
{
  manyRows();
  benchmark::Initialize(&argc, argv);
  keepTimes_t reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.printRatios();
}
