// What watches over the framework lock: how often a failure is reported in full, and what it needs of the rest of the
// framework.
#ifndef RTE_BLL_CORE_LOCK_SUPERVISOR_H
#define RTE_BLL_CORE_LOCK_SUPERVISOR_H

#include "base/thread_annotations.h"
#include "rte/BLL/core/log_impl.h"
#include "rte/BLL/core/recursive_shared_mutex.h"
#include <atomic>
#include <cstdint>
#include <cxxabi.h>
#include <optional>
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

// Same requester, owner and kind, and the same rows that hold. Who else waits, and since when, does not matter.
bool sameLockError(const recursiveSharedMutex_t::lockError_t& a, const recursiveSharedMutex_t::lockError_t& b);

// How often the failures of one lock are reported in full: the same failure is told again only after a while, and each
// time after twice as long; a different one at once.
class lockBackoff_t {
public:
  enum class verdict_t { report, stillActive };

  // Decides on `error` at `now` (seconds of any steady clock), and with `report` remembers it as the last one reported.
  // Any thread; of two that fail alike at the same time one is told to report.
  verdict_t judge(const recursiveSharedMutex_t::lockError_t& error, int64_t now);

private:
  checked_mutex mutex_;
  std::optional<recursiveSharedMutex_t::lockError_t> last_ TSA_GUARDED_BY(mutex_);
  int64_t lastReported_ TSA_GUARDED_BY(mutex_) = 0;
  int64_t interval_s_ TSA_GUARDED_BY(mutex_) = 0;
};

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
