// The framework lock beside std::recursive_mutex and boost::shared_mutex, in one run, with the ratios at the end. See
// bench/README.md for how to run it.
//
// An iteration is one take and its release. A parked thread keeps the process multi-threaded throughout: a process with
// one thread gets cheaper mutexes from the C library, and the cases would not compare. "deadline" cases are handed a
// deadline computed beforehand; "period" cases compute one at every take, which is what a scope class does.
#include "rte/BLL/core/bll_manager.h"
#include <benchmark/benchmark.h>
#include <boost/thread/shared_mutex.hpp>
#include <cstdio>
#include <future>
#include <map>
#include <memory>
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

}  // namespace
int main(int argc, char** argv)
{
  manyRows();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
