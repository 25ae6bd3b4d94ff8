// What the framework lock's supervision needs of the rest of the framework, and what the scope classes need of it.
#ifndef RTE_BLL_CORE_LOCK_SUPERVISOR_H
#define RTE_BLL_CORE_LOCK_SUPERVISOR_H

#include "rte/BLL/core/log_impl.h"
#include <atomic>
#include <cstdint>
#include <cxxabi.h>
#include <string>
#include <utility>

// The log, the self debugger and a clock: the real ones, unless a test has put its own in their places (before it
// starts threads).
struct lockSeam_t {
  // Writes `text` as it is, without a newline of its own.
  void (*log)(LogImpl::logLevel_t level, const std::string& text);
  bool (*backtracesEnabled)();
  // Writes the stack of a thread of this process where the self debugger reports; false if that failed.
  bool (*dumpBacktrace)(int32_t kernelThreadId);
  // Seconds of a clock that nobody sets.
  int64_t (*steadySeconds)();
};
lockSeam_t& lockSeam();

// Whether exclusive takes are preceded by frameworkLocks_t::takeLockTest(true).
extern std::atomic<bool> deadlockTestRuns;

// Runs `work` and drops what it throws: a lock's bookkeeping must not end the plug-in that only wanted the lock. The
// unwinding of a cancelled thread is no error and goes on.
template <typename Work>
void lockQuietly(Work&& work)
{
  try {
    std::forward<Work>(work)();
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {  // out of memory, for example: the caller's answer already says that there is no lock
  }
}

#endif
