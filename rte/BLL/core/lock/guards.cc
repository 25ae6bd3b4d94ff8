#include "rte/BLL/core/lock_guards.h"

#include "rte/BLL/core/lock/supervisor.h"
#include "rte/BLL/core/lock/waiting.h"
#include <algorithm>
#include <optional>

namespace {

constexpr int64_t fiveMinutes_us = 300'000'000;

// Never destroyed: a process must be able to exit while a thread still waits.
struct lasting_t {
  lasting_t() : lock() {}
  ~lasting_t() {}
  union {
    recursiveSharedMutex_t lock;
  };
};
// Made before the static objects of any library, whose constructors may take them: 101 is the first there is.
[[gnu::init_priority(101)]] lasting_t first;
[[gnu::init_priority(101)]] lasting_t second;

}  // namespace

constinit recursiveSharedMutex_t& frameworkLocks_t::lock = first.lock;
constinit recursiveSharedMutex_t& frameworkLocks_t::actLock = second.lock;

namespace frameworkLock {

constinit lockPeriod_t lock_t::lockingPeriod{fiveMinutes_us};
constinit lockPeriod_t actLock_t::actLockingPeriod{fiveMinutes_us};

lock_t::~lock_t() = default;

recursiveSharedMutex_t& lock_t::instance() const
{
  return frameworkLocks_t::lock;
}

lockPeriod_t& lock_t::period() const
{
  return lockingPeriod;
}

void lock_t::report(const recursiveSharedMutex_t::lockError_t& error) const
{
  frameworkLocks_t::reportLockException(error);
}

recursiveSharedMutex_t& actLock_t::instance() const
{
  return frameworkLocks_t::actLock;
}

lockPeriod_t& actLock_t::period() const
{
  return actLockingPeriod;
}

void actLock_t::report(const recursiveSharedMutex_t::lockError_t& error) const
{
  frameworkLocks_t::reportActLockException(error);
}

bool lock_t::takeOne(access_t access) const
{
  return access == access_t::exclusive ? instance().timedLock(period()) : instance().timedLockShared(period());
}

void lock_t::releaseOne(access_t access) const
{
  if (access == access_t::exclusive)
    instance().unlock();
  else
    instance().unlockShared();
}

bool lock_t::take(access_t access, const char* mark)
{
  if (locked_)
    return true;
  const bool traced = frameworkLocks_t::lockDebug.load(std::memory_order_relaxed);
  std::optional<cancellationOff_t> uncancelled;
  if (traced)
    uncancelled.emplace();  // a thread that died in the log would leave the lock taken
  lockQuietly([&] {
    if (traced)
      lockSeam().log(LogImpl::warning, mark);
    if (access == access_t::exclusive && deadlockTestRuns.load(std::memory_order_relaxed))
      frameworkLocks_t::takeLockTest(true);
    try {
      locked_ = takeOne(access);
      if (traced)
        locked_ ? lockSeam().log(LogImpl::warning, "] ") : lockSeam().log(LogImpl::critical, " error] ");
    } catch (const recursiveSharedMutex_t::lockError_t& error) {
      if (traced)
        lockSeam().log(LogImpl::critical, " Error] ");
      report(error);
    }
  });
  return locked_;
}

void lock_t::release(access_t access, const char* mark)
{
  const bool traced = frameworkLocks_t::lockDebug.load(std::memory_order_relaxed);
  std::optional<cancellationOff_t> uncancelled;
  if (traced) {
    uncancelled.emplace();
    lockQuietly([&] { lockSeam().log(LogImpl::warning, mark); });
  }
  if (locked_)
    releaseOne(access);
  locked_ = false;
  if (traced)
    lockQuietly([&] { lockSeam().log(LogImpl::warning, "] "); });
}

exclusiveLock_t::~exclusiveLock_t()
{
  if (locked_)
    unlock();
}

bool exclusiveLock_t::lock()
{
  return take(access_t::exclusive, " [+EL");
}

void exclusiveLock_t::unlock()
{
  release(access_t::exclusive, " [-EL");
}

sharedLock_t::~sharedLock_t()
{
  if (locked_)
    unlock();
}

bool sharedLock_t::lock()
{
  return take(access_t::shared, " [+SL");
}

void sharedLock_t::unlock()
{
  release(access_t::shared, " [-SL");
}

actExclusiveLock_t::~actExclusiveLock_t()
{
  if (locked_)
    actUnlock();
}

bool actExclusiveLock_t::actLock()
{
  return take(access_t::exclusive, " [+AEL");
}

void actExclusiveLock_t::actUnlock()
{
  release(access_t::exclusive, " [-AEL");
}

actSharedLock_t::~actSharedLock_t()
{
  if (locked_)
    actUnlock();
}

bool actSharedLock_t::actLock()
{
  return take(access_t::shared, " [+ASL");
}

void actSharedLock_t::actUnlock()
{
  release(access_t::shared, " [-ASL");
}

// Unlock-to-one and restore: a thread lets others run while it waits, and gets its nesting depth back afterwards.

bool lock_t::unlockExclusiveToOne()
{
  return unlockToOne(access_t::exclusive);
}

bool lock_t::unlockSharedToOne()
{
  return unlockToOne(access_t::shared);
}

bool lock_t::unlockToOne(access_t kept)
{
  if (!locked_ || unlockedToOne_)
    return false;
  const auto mine = instance().getCallerState();
  if (mine.kernelThreadId == 0 || (kept == access_t::exclusive ? mine.exclusiveCount : mine.sharedCount) <= 0)
    return false;
  savedSharedCount_ = static_cast<uint32_t>(std::max(mine.sharedCount, 0));
  savedExclusiveCount_ = static_cast<uint32_t>(std::max(mine.exclusiveCount, 0));
  for (uint32_t i = kept == access_t::shared ? 1 : 0; i < savedSharedCount_; ++i)
    releaseOne(access_t::shared);
  for (uint32_t i = kept == access_t::exclusive ? 1 : 0; i < savedExclusiveCount_; ++i)
    releaseOne(access_t::exclusive);
  unlockedToOne_ = true;
  return true;
}

bool lock_t::restoreUnlockedToOne()
{
  if (!locked_ || !unlockedToOne_)
    return false;
  const auto mine = instance().getCallerState();
  const bool oneExclusive = mine.exclusiveCount == 1 && mine.sharedCount == 0;
  const bool oneShared = mine.exclusiveCount == 0 && mine.sharedCount == 1;
  if (!oneExclusive && !oneShared)
    return false;
  if (!takeSavedAgain(oneExclusive))
    return false;
  savedSharedCount_ = savedExclusiveCount_ = 0;
  unlockedToOne_ = false;
  return true;
}

// Takes exclusive holds first: from one shared hold that is the upgrade, the only take that may wait here.
bool lock_t::takeSavedAgain(bool oneExclusive)
{
  uint32_t exclusive = oneExclusive ? 1 : 0;
  uint32_t shared = oneExclusive ? 0 : 1;
  bool complete = false;
  lockQuietly([&] {
    try {
      for (; exclusive < savedExclusiveCount_; ++exclusive)
        takeOne(access_t::exclusive);
      for (; shared < savedSharedCount_; ++shared)
        takeOne(access_t::shared);
      complete = true;
    } catch (const recursiveSharedMutex_t::lockError_t& error) {
      report(error);
    }
  });
  // Complete: nothing but a single hold of the kind that was not saved can be too much. Failed: back to the one hold.
  const uint32_t exclusiveLeft = complete ? savedExclusiveCount_ : (oneExclusive ? 1 : 0);
  const uint32_t sharedLeft = complete ? savedSharedCount_ : (oneExclusive ? 0 : 1);
  for (; shared > sharedLeft; --shared)
    releaseOne(access_t::shared);
  for (; exclusive > exclusiveLeft; --exclusive)
    releaseOne(access_t::exclusive);
  return complete;
}

}  // namespace frameworkLock
