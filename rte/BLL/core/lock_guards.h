// The framework's two locks, their scope classes, and what is told of a lock that was not obtained.
//
//   BLLManager::exclusiveLock_t guard;
//   if (!guard.isLocked())
//     return false;  // the reason is in the log: who holds it, since when, and that thread's stack
//
// A scope class takes the lock on construction and gives it back at the end of the scope. Nothing is thrown out of it.
// A take that fails is reported by the class and leaves the locked flag unset. A guard belongs to the thread that made
// it.
//
// Plug-ins reach all of it as members of BLLManager.
#ifndef RTE_BLL_CORE_LOCK_GUARDS_H
#define RTE_BLL_CORE_LOCK_GUARDS_H

#include "rte/BLL/core/lock_period.h"
#include "rte/BLL/core/recursive_shared_mutex.h"
#include <atomic>
#include <cstdint>
#include <ostream>
#include <string>

namespace frameworkLock {

class lock_t {
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

class exclusiveLock_t : public lock_t {
public:
  exclusiveLock_t() { lock(); }
  ~exclusiveLock_t() override;
  // Takes the lock, unless this guard has it already; the locked flag.
  bool lock();
  void unlock();
  bool unlockToOne() { return unlockExclusiveToOne(); }
};

class sharedLock_t : public lock_t {
public:
  sharedLock_t() { lock(); }
  ~sharedLock_t() override;
  // As those of exclusiveLock_t.
  bool lock();
  void unlock();
  bool unlockToOne() { return unlockSharedToOne(); }
};

// The same on BLLManager::actLock, which has its own period and its own reports.
class actLock_t : public lock_t {
public:
  static lockPeriod_t actLockingPeriod;  // five minutes at start

protected:
  actLock_t() = default;
  recursiveSharedMutex_t& instance() const override;
  lockPeriod_t& period() const override;
  void report(const recursiveSharedMutex_t::lockError_t& error) const override;
};

class actExclusiveLock_t : public actLock_t {
public:
  actExclusiveLock_t() { actLock(); }
  ~actExclusiveLock_t() override;
  // As lock() and unlock() of exclusiveLock_t.
  bool actLock();
  void actUnlock();
  bool unlockToOne() { return unlockExclusiveToOne(); }
};

class actSharedLock_t : public actLock_t {
public:
  actSharedLock_t() { actLock(); }
  ~actSharedLock_t() override;
  // As lock() and unlock() of exclusiveLock_t.
  bool actLock();
  void actUnlock();
  bool unlockToOne() { return unlockSharedToOne(); }
};

}  // namespace frameworkLock

// What a caller of BLLManager::lockCheck is about to do under the framework lock.
enum class lockType : int {
  read = 0,   // any hold of the calling thread will do
  write = 1,  // needs an exclusive hold
};

// The locks and their supervision, by the names under which BLLManager, which derives from it, hands them on.
class frameworkLocks_t {
public:
  using lock_t = frameworkLock::lock_t;
  using exclusiveLock_t = frameworkLock::exclusiveLock_t;
  using sharedLock_t = frameworkLock::sharedLock_t;
  using actLock_t = frameworkLock::actLock_t;
  using actExclusiveLock_t = frameworkLock::actExclusiveLock_t;
  using actSharedLock_t = frameworkLock::actSharedLock_t;

  // The lock that serialises all business logic, and a second, independent one. Ready before any other static object of
  // the process and never destroyed: a thread may still wait on them while the process exits.
  static recursiveSharedMutex_t& lock;
  static recursiveSharedMutex_t& actLock;

  // Message "lockDebug": every take and release of a scope class leaves a mark in the log.
  static std::atomic<bool> lockDebug;

  // Reports a take that failed: the whole story at most once per back-off interval for the same failure, one line in
  // between. Ends by setting the period of the lock back to five minutes. Any thread; holds no framework lock.
  static void reportLockException(const recursiveSharedMutex_t::lockError_t& error);
  static void reportActLockException(const recursiveSharedMutex_t::lockError_t& error);
  // Who asked for what and failed, followed by the dump of holders.
  static std::string getExceptionDescription(const recursiveSharedMutex_t::lockError_t& error);
  static std::string getActExceptionDescription(const recursiveSharedMutex_t::lockError_t& error);
  // Writes a table of the threads in `states` that hold or wait, with their registered names.
  static void getLockHoldersDump(std::ostream& out, const recursiveSharedMutex_t::stateMap_t& states);
  // Logs the stack of every thread in `states` that has held for a whole period or longer, if the self debugger has
  // backtrace reports enabled; a thread is dumped again only after 8/3 of a period.
  static void reportProblematicThreads(const recursiveSharedMutex_t::stateMap_t& states);
  // Prints the holders of BLLManager::lock on standard output, for use from a debugger or a plug-in under test.
  static void debug_showLockHolders();
  // Message "deadlocktest": while it runs, exclusive takes are preceded by takeLockTest(true).
  static void bllDeadlockTest(bool start, std::ostream& out);
  // With true, lets go of the processor for a random time of 0 to 5 ms, so that races between plug-ins show.
  static void takeLockTest(bool start);
  // True when the calling thread holds BLLManager::lock as `access` needs it; otherwise false, and a report in the log.
  static bool lockCheck(lockType access);

protected:
  frameworkLocks_t() = default;
  ~frameworkLocks_t() = default;
};

#endif
