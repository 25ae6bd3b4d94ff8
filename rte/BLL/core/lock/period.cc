#include "rte/BLL/core/lock_period.h"

#include <limits>

namespace posix_time = boost::posix_time;

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
