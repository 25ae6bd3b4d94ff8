// How long a take of the framework lock may wait: a duration in microseconds that operators change at run time.
#ifndef RTE_BLL_CORE_LOCK_PERIOD_H
#define RTE_BLL_CORE_LOCK_PERIOD_H

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
  operator duration() const { return get(); }
  duration get() const { return fromTicks(ticks_.load(std::memory_order_relaxed)); }

  // What a duration is asked for, of the present value.
  auto hours() const { return get().hours(); }
  auto minutes() const { return get().minutes(); }
  auto seconds() const { return get().seconds(); }
  auto fractional_seconds() const { return get().fractional_seconds(); }
  auto total_seconds() const { return get().total_seconds(); }
  auto total_milliseconds() const { return get().total_milliseconds(); }
  auto total_microseconds() const { return get().total_microseconds(); }
  auto total_nanoseconds() const { return get().total_nanoseconds(); }
  auto ticks() const { return get().ticks(); }
  bool is_negative() const { return get().is_negative(); }
  bool is_special() const { return get().is_special(); }
  bool is_pos_infinity() const { return get().is_pos_infinity(); }
  bool is_neg_infinity() const { return get().is_neg_infinity(); }
  bool is_not_a_date_time() const { return get().is_not_a_date_time(); }

  duration operator-() const { return -get(); }
  duration operator+(const duration& other) const { return get() + other; }
  duration operator-(const duration& other) const { return get() - other; }
  duration operator*(int factor) const { return get() * factor; }
  duration operator/(int divisor) const { return get() / divisor; }

  friend bool operator==(const lockPeriod_t& a, const lockPeriod_t& b) { return a.get() == b.get(); }
  friend bool operator!=(const lockPeriod_t& a, const lockPeriod_t& b) { return a.get() != b.get(); }
  friend bool operator<(const lockPeriod_t& a, const lockPeriod_t& b) { return a.get() < b.get(); }
  friend bool operator<=(const lockPeriod_t& a, const lockPeriod_t& b) { return a.get() <= b.get(); }
  friend bool operator>(const lockPeriod_t& a, const lockPeriod_t& b) { return a.get() > b.get(); }
  friend bool operator>=(const lockPeriod_t& a, const lockPeriod_t& b) { return a.get() >= b.get(); }
  // Beside a plain duration Boost's own operators do for the rest.
  friend bool operator==(const lockPeriod_t& a, const duration& b) { return a.get() == b; }
  friend bool operator!=(const lockPeriod_t& a, const duration& b) { return a.get() != b; }
  friend bool operator<(const lockPeriod_t& a, const duration& b) { return a.get() < b; }

  // Whole seconds, rounded down; the largest or smallest number for an infinity, 0 for not-a-date-time.
  int64_t wholeSeconds() const;

private:
  static duration fromTicks(int64_t ticks);
  std::atomic<int64_t> ticks_;
};

#endif
