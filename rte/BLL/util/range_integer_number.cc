#include "rte/BLL/util/range_integer_number.h"

bool CRangeIntegerNumber::expand(std::vector<uint32_t>& out, size_t at_most) const
{
  if (numbers_.count() > at_most)
    return false;
  std::vector<uint32_t> all;
  for (const CRangeNumber::range_t& range : numbers_.ranges())
    for (uint64_t number = range.first; number <= range.last; ++number)
      all.push_back(static_cast<uint32_t>(number));
  out = std::move(all);
  return true;
}
