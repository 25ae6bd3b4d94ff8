#include "rte/BLL/core/recursive_shared_mutex.h"

#include "rte/BLL/core/lock/mutex.h"
#include <utility>

recursiveSharedMutex_t::lockError_t::lockError_t(stateMap_t statesNow, boost::thread::id requesterId,
                                                 boost::thread::id ownerId, bool exclusive, bool heldExclusive)
    : states(std::move(statesNow)), requester(requesterId), owner(ownerId), exclusiveRequested(exclusive),
      exclusiveHeld(heldExclusive)
{}

recursiveSharedMutex_t::lockError_t::~lockError_t() = default;

const char* recursiveSharedMutex_t::lockError_t::what() const noexcept
{
  return exclusiveRequested ? "failed to get exclusive lock" : "failed to get shared lock";
}

recursiveSharedMutex_t::recursiveSharedMutex_t() : impl_(std::make_shared<impl_t>()) {}

recursiveSharedMutex_t::~recursiveSharedMutex_t() = default;

bool recursiveSharedMutex_t::timedLock(const boost::system_time& deadline)
{
  return impl_->take(lockRules_t::access_t::exclusive, deadline);
}

bool recursiveSharedMutex_t::timedLockShared(const boost::system_time& deadline)
{
  return impl_->take(lockRules_t::access_t::shared, deadline);
}

bool recursiveSharedMutex_t::timedLock(const lockPeriod_t& period)
{
  return impl_->take(lockRules_t::access_t::exclusive, period);
}

bool recursiveSharedMutex_t::timedLockShared(const lockPeriod_t& period)
{
  return impl_->take(lockRules_t::access_t::shared, period);
}

void recursiveSharedMutex_t::unlock()
{
  impl_->release(lockRules_t::access_t::exclusive);
}

void recursiveSharedMutex_t::unlockShared()
{
  impl_->release(lockRules_t::access_t::shared);
}

recursiveSharedMutex_t::stateMap_t recursiveSharedMutex_t::getStateMap() const
{
  return impl_->states();
}

recursiveSharedMutex_t::stateData recursiveSharedMutex_t::getCallerState() const
{
  return impl_->callerState();
}
