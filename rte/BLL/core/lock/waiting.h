// Waiting for the framework lock: until when, on what, and undisturbed.
#ifndef RTE_BLL_CORE_LOCK_WAITING_H
#define RTE_BLL_CORE_LOCK_WAITING_H

#include "base/thread_annotations.h"
#include <boost/thread/thread_time.hpp>
#include <chrono>
#include <optional>
#include <pthread.h>

// The mutex inside the lock. It is held for some ten nanoseconds at a time: with eight readers, spinning for a moment
// before sleeping takes a quarter off the time of a take. std::mutex never spins.
class TSA_CAPABILITY("mutex") spinningMutex_t {
public:
  spinningMutex_t() = default;
  ~spinningMutex_t() { pthread_mutex_destroy(&mutex_); }
  spinningMutex_t(const spinningMutex_t&) = delete;
  spinningMutex_t& operator=(const spinningMutex_t&) = delete;

  void lock() TSA_ACQUIRE() { pthread_mutex_lock(&mutex_); }
  void unlock() TSA_RELEASE() { pthread_mutex_unlock(&mutex_); }

private:
  friend class waitingQueue_t;
  pthread_mutex_t mutex_ = PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP;
};
using spinningGuard_t = checked_guard<spinningMutex_t>;

// An absolute UTC time, carried over to the monotonic clock at construction: what the system's time does afterwards
// neither shortens nor stretches the wait.
class lockDeadline_t {
public:
  using clock_t = std::chrono::steady_clock;

  explicit lockDeadline_t(const boost::system_time& deadline);
  // On the monotonic clock; none: without end.
  const std::optional<clock_t::time_point>& until() const { return until_; }

private:
  std::optional<clock_t::time_point> until_;
};

// Threads that wait for the same thing. They are counted, which spares the releases that nobody waits for a call. The
// mutex is the one that guards what is waited for, and is held by every caller.
class waitingQueue_t {
public:
  waitingQueue_t() = default;
  ~waitingQueue_t() { pthread_cond_destroy(&condition_); }
  waitingQueue_t(const waitingQueue_t&) = delete;
  waitingQueue_t& operator=(const waitingQueue_t&) = delete;

  // Waits for a wake-up; false when the deadline has passed.
  bool wait(spinningMutex_t& mutex, const lockDeadline_t& deadline) TSA_REQUIRES(mutex);
  void wakeOne()
  {
    if (sleeping_ > 0)
      pthread_cond_signal(&condition_);
  }
  void wakeAll()
  {
    if (sleeping_ > 0)
      pthread_cond_broadcast(&condition_);
  }

private:
  pthread_cond_t condition_ = PTHREAD_COND_INITIALIZER;
  int sleeping_ = 0;
};

// Now as the deadlines count it: UTC in microseconds.
boost::system_time lockUtcNow();

// The deadline `period` from now. An infinite period gives the infinity, not-a-date-time gives not-a-date-time; a sum
// outside the calendar's years gives the infinity on that side.
boost::system_time lockDeadlineAfter(const boost::posix_time::time_duration& period);

// No cancellation of the calling thread in this scope.
class cancellationOff_t {
public:
  cancellationOff_t() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
  ~cancellationOff_t() { pthread_setcancelstate(before_, nullptr); }
  cancellationOff_t(const cancellationOff_t&) = delete;
  cancellationOff_t& operator=(const cancellationOff_t&) = delete;

private:
  int before_ = 0;
};

#endif
