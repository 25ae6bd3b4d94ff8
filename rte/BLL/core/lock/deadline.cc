#include "rte/BLL/core/lock/deadline.h"

#include <algorithm>
#include <boost/date_time/posix_time/posix_time_types.hpp>

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
  until_ = clock::now();
  if (deadline.is_special())
    return;  // the infinite past, and no time at all: already over
  const std::chrono::microseconds remaining((deadline - lockUtcNow()).total_microseconds());
  *until_ += std::clamp(remaining, std::chrono::microseconds(0), longestWait);
}

bool lockDeadline_t::wait(std::condition_variable& condition, std::unique_lock<std::mutex>& guard) const
{
  if (until_)
    return condition.wait_until(guard, *until_) == std::cv_status::no_timeout;
  condition.wait(guard);
  return true;
}
