#include "rte/BLL/core/lock/backoff.h"

#include "rte/BLL/core/lock/rules.h"
#include <algorithm>
#include <iterator>
#include <vector>

namespace {

constexpr int64_t firstInterval_s = 45;

using row_t = recursiveSharedMutex_t::stateMap_t::value_type;

std::vector<row_t> holders(const recursiveSharedMutex_t::stateMap_t& states)
{
  std::vector<row_t> found;
  std::copy_if(states.begin(), states.end(), std::back_inserter(found),
               [](const row_t& row) { return lockRules_t::holds(row.second); });
  return found;
}

bool sameHolder(const row_t& a, const row_t& b)
{
  return a.first == b.first && a.second.sharedCount == b.second.sharedCount &&
         a.second.exclusiveCount == b.second.exclusiveCount && a.second.waiting == b.second.waiting &&
         a.second.kernelThreadId == b.second.kernelThreadId;
}

}  // namespace

bool sameLockError(const recursiveSharedMutex_t::lockError_t& a, const recursiveSharedMutex_t::lockError_t& b)
{
  if (a.requester != b.requester || a.owner != b.owner || a.exclusiveRequested != b.exclusiveRequested ||
      a.exclusiveHeld != b.exclusiveHeld)
    return false;
  const auto ofA = holders(a.states);
  const auto ofB = holders(b.states);
  return std::equal(ofA.begin(), ofA.end(), ofB.begin(), ofB.end(), sameHolder);
}

lockBackoff_t::verdict_t lockBackoff_t::judge(const recursiveSharedMutex_t::lockError_t& error, int64_t now)
{
  const std::lock_guard guard(mutex_);
  if (!last_ || !sameLockError(*last_, error)) {
    interval_s_ = firstInterval_s;
  } else {
    if (now - lastReported_ < interval_s_)
      return verdict_t::stillActive;
    interval_s_ *= 2;
  }
  last_.emplace(error);
  lastReported_ = now;
  return verdict_t::report;
}
