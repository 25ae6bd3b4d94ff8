// Waiting for the framework lock: until when, and undisturbed. Not installed.
#pragma once

#include <boost/thread/thread_time.hpp>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <pthread.h>

// An absolute UTC time, carried over to the monotonic clock at construction: what the system's time does afterwards
// neither shortens nor stretches the wait.
class lockDeadline_t {
public:
  using clock = std::chrono::steady_clock;

  explicit lockDeadline_t(const boost::system_time& deadline);
  // Waits for a wake-up; false when the deadline has passed.
  bool wait(std::condition_variable& condition, std::unique_lock<std::mutex>& guard) const;

private:
  std::optional<clock::time_point> until_;  // none: without end
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
