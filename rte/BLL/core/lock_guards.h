// The scope classes of the framework lock: take it on construction, give it back at the end of the scope.
//
//   BLLManager::exclusiveLock_t guard;
//   if (!guard.isLocked())
//     return false;  // the reason is in the log: who holds it, since when, and that thread's stack
//
// Nothing is thrown out of a scope class. A take that fails is reported by the class and leaves the locked flag unset.
// A guard belongs to the thread that made it. Included by bll_manager.h; do not include it by itself.
#pragma once

#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/lock_period.h"
#include "rte/BLL/core/recursive_shared_mutex.h"
#include <cstdint>

class BLLManager::lock_t {
public:
  // What each take on BLLManager::lock waits at most: five minutes at start, message "lockingPeriod".
  static lockPeriod_t lockingPeriod;

  virtual ~lock_t();
  lock_t(const lock_t&) = delete;
  lock_t& operator=(const lock_t&) = delete;

  bool isLocked() const { return locked_; }
  bool isUnlockedToOne() const { return unlockedToOne_; }

  // For code that must let other threads run while it waits, without losing its nesting depth: gives back all holds of
  // the calling thread but one exclusive (one shared) hold, and remembers them. False, and nothing done, unless the
  // guard is locked, not yet unlocked-to-one, and the thread has such a hold.
  bool unlockExclusiveToOne();
  bool unlockSharedToOne();
  // Takes the remembered holds again, waiting at most the period. False when the guard is not unlocked-to-one, when the
  // thread holds anything else than exactly one hold, or when a remembered exclusive hold could not be had (reported;
  // the thread is left with its one hold and may try again). Must succeed before the guards around this one end.
  bool restoreUnlockedToOne();

protected:
  enum class access_t : bool { shared, exclusive };
  lock_t() = default;
  // Which lock this is about; the act classes answer with the other one.
  virtual recursiveSharedMutex_t& instance() const;
  virtual lockPeriod_t& period() const;
  virtual void report(const recursiveSharedMutex_t::lockError_t& error) const;
  // `mark` is the trace of a take or release that the message "lockDebug" switches on.
  bool take(access_t access, const char* mark);
  void release(access_t access, const char* mark);

  bool locked_ = false;
  bool unlockedToOne_ = false;
  uint32_t savedSharedCount_ = 0;
  uint32_t savedExclusiveCount_ = 0;

private:
  bool takeOne(access_t access) const;  // throws what timedLock throws
  void releaseOne(access_t access) const;
  bool unlockToOne(access_t kept);
  bool takeSavedAgain(bool oneExclusive);
};

class BLLManager::exclusiveLock_t : public lock_t {
public:
  exclusiveLock_t() { lock(); }
  ~exclusiveLock_t() override;
  // Takes the lock, unless this guard has it already; the locked flag.
  bool lock();
  void unlock();
  bool unlockToOne() { return unlockExclusiveToOne(); }
};

class BLLManager::sharedLock_t : public lock_t {
public:
  sharedLock_t() { lock(); }
  ~sharedLock_t() override;
  // As those of exclusiveLock_t.
  bool lock();
  void unlock();
  bool unlockToOne() { return unlockSharedToOne(); }
};

// The same on BLLManager::actLock, which has its own period and its own reports.
class BLLManager::actLock_t : public lock_t {
public:
  static lockPeriod_t actLockingPeriod;  // five minutes at start

protected:
  actLock_t() = default;
  recursiveSharedMutex_t& instance() const override;
  lockPeriod_t& period() const override;
  void report(const recursiveSharedMutex_t::lockError_t& error) const override;
};

class BLLManager::actExclusiveLock_t : public actLock_t {
public:
  actExclusiveLock_t() { actLock(); }
  ~actExclusiveLock_t() override;
  // As lock() and unlock() of exclusiveLock_t.
  bool actLock();
  void actUnlock();
  bool unlockToOne() { return unlockExclusiveToOne(); }
};

class BLLManager::actSharedLock_t : public actLock_t {
public:
  actSharedLock_t() { actLock(); }
  ~actSharedLock_t() override;
  // As lock() and unlock() of exclusiveLock_t.
  bool actLock();
  void actUnlock();
  bool unlockToOne() { return unlockSharedToOne(); }
};
