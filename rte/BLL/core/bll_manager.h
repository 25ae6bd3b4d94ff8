// The manager of the business-logic entities: one object a process, reached as singleton<BLLManager>::instance().
#pragma once

#include "rte/BLL/core/recursive_shared_mutex.h"
#include <atomic>
#include <ostream>
#include <string>

// What a caller of BLLManager::lockCheck is about to do under the framework lock.
enum class lockType : int {
  read = 0,   // any hold of the calling thread will do
  write = 1,  // needs an exclusive hold
};

class BLLManager {
public:
  // ---- The framework lock: recursive_shared_mutex.h, lock_guards.h, lock_supervisor.cc ----
  class lock_t;
  class exclusiveLock_t;
  class sharedLock_t;
  class actLock_t;
  class actExclusiveLock_t;
  class actSharedLock_t;

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

private:
  static std::atomic<bool> deadlockTestRuns;

  // ---- The manager itself (public and private members below this line) ----
};

#include "rte/BLL/core/lock_guards.h"  // defines the nested scope classes
