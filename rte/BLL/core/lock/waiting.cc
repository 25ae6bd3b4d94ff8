#include "rte/BLL/core/lock/waiting.h"

#include "rte/BLL/core/lock_period.h"
#include <algorithm>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <cerrno>
#include <limits>

namespace posix_time = boost::posix_time;

namespace {

// About a century: a later deadline would leave the range of the monotonic clock's nanoseconds.
constexpr std::chrono::microseconds longestWait = std::chrono::hours(24 * 365 * 100);

}  // namespace

boost::system_time lockUtcNow()
{
  static const boost::system_time epoch(boost::gregorian::date(1970, 1, 1));
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return epoch +
         posix_time::time_duration(0, 0, 0, std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch).count());
}

boost::system_time lockDeadlineAfter(const posix_time::time_duration& period)
{
  const boost::system_time now = lockUtcNow();
  if (period.is_special())
    return now + period;
  const boost::system_time last(posix_time::max_date_time);
  const boost::system_time first(posix_time::min_date_time);
  if (period > last - now)
    return posix_time::pos_infin;
  if (period < first - now)
    return posix_time::neg_infin;
  return now + period;
}

lockDeadline_t::lockDeadline_t(const boost::system_time& deadline)
{
  if (deadline.is_pos_infinity())
    return;
  until_ = clock_t::now();
  if (deadline.is_special())
    return;  // the infinite past, and no time at all: already over
  const std::chrono::microseconds remaining((deadline - lockUtcNow()).total_microseconds());
  *until_ += std::clamp(remaining, std::chrono::microseconds(0), longestWait);
}

bool waitingQueue_t::wait(spinningMutex_t& mutex, const lockDeadline_t& deadline)
{
  int error = 0;
  ++sleeping_;
  if (const auto& until = deadline.until()) {
    const auto time = until->time_since_epoch();
    const auto whole = std::chrono::duration_cast<std::chrono::seconds>(time);
    const timespec at{whole.count(), std::chrono::nanoseconds(time - whole).count()};
    error = pthread_cond_clockwait(&condition_, &mutex.mutex_, CLOCK_MONOTONIC, &at);
  } else {
    pthread_cond_wait(&condition_, &mutex.mutex_);
  }
  --sleeping_;
  return error != ETIMEDOUT;
}

lockPeriod_t::duration lockPeriod_t::fromTicks(int64_t ticks)
{
  // The time type keeps its special values as numbers at the ends of the range, but does not build them from numbers.
  for (const auto special : {posix_time::pos_infin, posix_time::neg_infin, posix_time::not_a_date_time})
    if (ticks == duration(special).get_rep().as_number())
      return special;
  return duration(0, 0, 0, ticks);
}

int64_t lockPeriod_t::wholeSeconds() const
{
  const duration period = *this;
  if (period.is_pos_infinity())
    return std::numeric_limits<int64_t>::max();
  if (period.is_neg_infinity())
    return std::numeric_limits<int64_t>::min();
  return period.is_not_a_date_time() ? 0 : period.total_seconds();
}
