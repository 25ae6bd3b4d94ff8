// What the tests of the framework lock share: deadlines, threads that act on command, looking at rows.
#ifndef TESTS_FRAMEWORK_LOCK_SUPPORT_H
#define TESTS_FRAMEWORK_LOCK_SUPPORT_H

#include "rte/BLL/core/recursive_shared_mutex.h"
#include <boost/thread/thread.hpp>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>

namespace lock_test {

inline boost::system_time in(std::chrono::milliseconds wait)
{
  return boost::get_system_time() + boost::posix_time::milliseconds(wait.count());
}
using namespace std::chrono_literals;
// Long enough never to pass in a test that works, short enough to end one that does not.
inline boost::system_time farAway()
{
  return in(20s);
}

// Runs each task on one thread of its own, in order. run() waits for the end of its task; start() does not.
class actor_t {
public:
  ~actor_t()
  {
    start([this] { stop_ = true; });
    thread_.join();
  }
  template <typename Task>
  auto start(Task task) -> std::future<decltype(task())>
  {
    auto packaged = std::make_shared<std::packaged_task<decltype(task())()>>(std::move(task));
    auto result = packaged->get_future();
    {
      const std::lock_guard guard(mutex_);
      tasks_.push_back([packaged] { (*packaged)(); });
    }
    wake_.notify_one();
    return result;
  }
  template <typename Task>
  auto run(Task task)
  {
    return start(std::move(task)).get();
  }
  boost::thread::id id() { return thread_.get_id(); }
  boost::thread& thread() { return thread_; }

private:
  void work()
  {
    while (!stop_) {
      std::unique_lock guard(mutex_);
      wake_.wait(guard, [this] { return !tasks_.empty(); });
      auto task = std::move(tasks_.front());
      tasks_.pop_front();
      guard.unlock();
      task();
    }
  }
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::function<void()>> tasks_;
  bool stop_ = false;  // the worker's own
  boost::thread thread_{[this] { work(); }};
};

inline recursiveSharedMutex_t::stateData rowOf(const recursiveSharedMutex_t& lock, boost::thread::id id)
{
  const auto states = lock.getStateMap();
  const auto row = states.find(id);
  return row == states.end() ? recursiveSharedMutex_t::stateData{} : row->second;
}

// Returns when the thread waits for exclusive ownership: a hand-shake through the lock's own table.
inline void awaitWriter(const recursiveSharedMutex_t& lock, boost::thread::id id)
{
  while (!rowOf(lock, id).waiting)
    std::this_thread::yield();
}

enum class outcome_t { taken, failedExclusiveHeld, failedOtherwise };
template <typename Take>
outcome_t outcomeOf(Take take)
{
  try {
    take();
    return outcome_t::taken;
  } catch (const recursiveSharedMutex_t::lockError_t& error) {
    return error.exclusiveHeld ? outcome_t::failedExclusiveHeld : outcome_t::failedOtherwise;
  }
}
inline outcome_t takeExclusive(recursiveSharedMutex_t& lock, const boost::system_time& deadline)
{
  return outcomeOf([&] { lock.timedLock(deadline); });
}
inline outcome_t takeShared(recursiveSharedMutex_t& lock, const boost::system_time& deadline)
{
  return outcomeOf([&] { lock.timedLockShared(deadline); });
}

}  // namespace lock_test

#endif
