// How long a take of the framework lock may wait: a duration in microseconds that operators change at run time.
#pragma once

#include <atomic>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <cstdint>

// Behaves like a boost::posix_time::time_duration that any thread may read while another sets it. The special values
// (infinities, not-a-date-time) are kept as they are. A new value applies from the next take on.
class lockPeriod_t {
public:
  using duration = boost::posix_time::time_duration;

  explicit constexpr lockPeriod_t(int64_t microseconds) : ticks_(microseconds) {}
  lockPeriod_t& operator=(const duration& period)
  {
    ticks_.store(period.get_rep().as_number(), std::memory_order_relaxed);
    return *this;
  }
  operator duration() const { return fromTicks(ticks_.load(std::memory_order_relaxed)); }

  // Whole seconds, rounded down; the largest or smallest number for an infinity, 0 for not-a-date-time.
  int64_t wholeSeconds() const;

private:
  static duration fromTicks(int64_t ticks);
  std::atomic<int64_t> ticks_;
};
