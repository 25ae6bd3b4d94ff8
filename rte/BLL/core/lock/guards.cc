#include "rte/BLL/core/lock_guards.h"

#include "rte/BLL/core/lock/deadline.h"
#include "rte/BLL/core/lock/seam.h"
#include <new>
#include <optional>

namespace {

constexpr int64_t fiveMinutes_us = 300'000'000;

// The two locks, made before the static objects of any library, whose constructors may take them, and never destroyed:
// a process must be able to exit while a thread still waits.
union frameworkLock_t {
  constexpr frameworkLock_t() : nothing{} {}
  ~frameworkLock_t() {}
  char nothing;
  recursiveSharedMutex_t lock;
};
constinit frameworkLock_t first;
constinit frameworkLock_t second;

struct maker_t {
  maker_t()
  {
    new (&first.lock) recursiveSharedMutex_t;
    new (&second.lock) recursiveSharedMutex_t;
  }
};
[[gnu::init_priority(101)]] maker_t maker;

}  // namespace

constinit recursiveSharedMutex_t& BLLManager::lock = first.lock;
constinit recursiveSharedMutex_t& BLLManager::actLock = second.lock;
constinit lockPeriod_t BLLManager::lock_t::lockingPeriod{fiveMinutes_us};
constinit lockPeriod_t BLLManager::actLock_t::actLockingPeriod{fiveMinutes_us};

BLLManager::lock_t::~lock_t() = default;

recursiveSharedMutex_t& BLLManager::lock_t::instance() const
{
  return BLLManager::lock;
}

lockPeriod_t& BLLManager::lock_t::period() const
{
  return lockingPeriod;
}

void BLLManager::lock_t::report(const recursiveSharedMutex_t::lockError_t& error) const
{
  reportLockException(error);
}

recursiveSharedMutex_t& BLLManager::actLock_t::instance() const
{
  return BLLManager::actLock;
}

lockPeriod_t& BLLManager::actLock_t::period() const
{
  return actLockingPeriod;
}

void BLLManager::actLock_t::report(const recursiveSharedMutex_t::lockError_t& error) const
{
  reportActLockException(error);
}

bool BLLManager::lock_t::takeOne(access_t access) const
{
  return access == access_t::exclusive ? instance().timedLock(period()) : instance().timedLockShared(period());
}

void BLLManager::lock_t::releaseOne(access_t access) const
{
  if (access == access_t::exclusive)
    instance().unlock();
  else
    instance().unlockShared();
}

bool BLLManager::lock_t::take(access_t access, const char* mark)
{
  if (locked_)
    return true;
  const bool traced = lockDebug.load(std::memory_order_relaxed);
  std::optional<cancellationOff_t> uncancelled;
  if (traced)
    uncancelled.emplace();  // a thread that died in the log would leave the lock taken
  lockQuietly([&] {
    if (traced)
      lockSeam().log(lockLogLevel_t::warning, mark);
    if (access == access_t::exclusive && deadlockTestRuns.load(std::memory_order_relaxed))
      takeLockTest(true);
    try {
      locked_ = takeOne(access);
      if (traced)
        locked_ ? lockSeam().log(lockLogLevel_t::warning, "] ") : lockSeam().log(lockLogLevel_t::critical, " error] ");
    } catch (const recursiveSharedMutex_t::lockError_t& error) {
      if (traced)
        lockSeam().log(lockLogLevel_t::critical, " Error] ");
      report(error);
    }
  });
  return locked_;
}

void BLLManager::lock_t::release(access_t access, const char* mark)
{
  const bool traced = lockDebug.load(std::memory_order_relaxed);
  std::optional<cancellationOff_t> uncancelled;
  if (traced) {
    uncancelled.emplace();
    lockQuietly([&] { lockSeam().log(lockLogLevel_t::warning, mark); });
  }
  if (locked_)
    releaseOne(access);
  locked_ = false;
  if (traced)
    lockQuietly([&] { lockSeam().log(lockLogLevel_t::warning, "] "); });
}

BLLManager::exclusiveLock_t::~exclusiveLock_t()
{
  if (locked_)
    unlock();
}

bool BLLManager::exclusiveLock_t::lock()
{
  return take(access_t::exclusive, " [+EL");
}

void BLLManager::exclusiveLock_t::unlock()
{
  release(access_t::exclusive, " [-EL");
}

BLLManager::sharedLock_t::~sharedLock_t()
{
  if (locked_)
    unlock();
}

bool BLLManager::sharedLock_t::lock()
{
  return take(access_t::shared, " [+SL");
}

void BLLManager::sharedLock_t::unlock()
{
  release(access_t::shared, " [-SL");
}

BLLManager::actExclusiveLock_t::~actExclusiveLock_t()
{
  if (locked_)
    actUnlock();
}

bool BLLManager::actExclusiveLock_t::actLock()
{
  return take(access_t::exclusive, " [+AEL");
}

void BLLManager::actExclusiveLock_t::actUnlock()
{
  release(access_t::exclusive, " [-AEL");
}

BLLManager::actSharedLock_t::~actSharedLock_t()
{
  if (locked_)
    actUnlock();
}

bool BLLManager::actSharedLock_t::actLock()
{
  return take(access_t::shared, " [+ASL");
}

void BLLManager::actSharedLock_t::actUnlock()
{
  release(access_t::shared, " [-ASL");
}
