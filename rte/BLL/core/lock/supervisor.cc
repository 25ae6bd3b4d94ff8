// What happens when the framework lock is not obtained: the reports, the stacks of those who hold it too long, the test
// that provokes races, the check that code holds what it needs.
#include "rte/BLL/core/lock/supervisor.h"

#include "base/thread_annotations.h"
#include "rte/BLL/core/lock/rules.h"
#include "rte/BLL/core/lock_guards.h"
#include "rte/BLL/core/log/log_line.h"
#include "rte/BLL/core/self_debugger.h"
#include "rte/BLL/core/thread_registry.h"
#include <algorithm>
#include <chrono>
#include <ctime>
#include <iostream>
#include <iterator>
#include <map>
#include <optional>
#include <random>
#include <sstream>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using lockError_t = recursiveSharedMutex_t::lockError_t;
using stateMap_t = recursiveSharedMutex_t::stateMap_t;
using row_t = stateMap_t::value_type;
using threads_t = threadRegistry_t::threads_t;

void writeToFrameworkLog(LogImpl::logLevel_t level, const std::string& text)
{
  logAt(level) << text;
}

bool backtraceReportsEnabled()
{
  return singleton<SelfDebugger>::instance().areBacktraceReportsEnabled();
}

bool dumpBacktrace(int32_t kernelThreadId)
{
  return singleton<SelfDebugger>::instance().dumpBacktrace(kernelThreadId);
}

int64_t steadySeconds()
{
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::vector<row_t> holders(const stateMap_t& states)
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

// Same requester, owner and kind, and the same rows that hold. Who else waits, and since when, does not matter.
bool sameLockError(const lockError_t& a, const lockError_t& b)
{
  if (a.requester != b.requester || a.owner != b.owner || a.exclusiveRequested != b.exclusiveRequested ||
      a.exclusiveHeld != b.exclusiveHeld)
    return false;
  const auto ofA = holders(a.states);
  const auto ofB = holders(b.states);
  return std::equal(ofA.begin(), ofA.end(), ofB.begin(), ofB.end(), sameHolder);
}

// How often the failures of one lock are reported in full: the same failure is told again only after a while, and each
// time after twice as long; a different one at once.
class lockBackoff_t {
public:
  enum class verdict_t { report, stillActive };

  // Decides on `error` at `now` (seconds of any steady clock), and with `report` remembers it as the last one reported.
  // Any thread; of two that fail alike at the same time one is told to report.
  verdict_t judge(const lockError_t& error, int64_t now)
  {
    const mutex_guard guard(mutex_);
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

private:
  static constexpr int64_t firstInterval_s = 45;
  checked_mutex mutex_;
  std::optional<lockError_t> last_ TSA_GUARDED_BY(mutex_);
  int64_t lastReported_ TSA_GUARDED_BY(mutex_) = 0;
  int64_t interval_s_ TSA_GUARDED_BY(mutex_) = 0;
};

// Which threads' stacks are in the log already, and since when (steady seconds), by kernel thread id.
class dumpedThreads_t {
public:
  // True, and remembered, unless it was dumped within the last `window_s` seconds.
  bool due(int32_t kernelThreadId, int64_t now, int64_t window_s)
  {
    const mutex_guard guard(mutex_);
    if (const auto last = dumped_.find(kernelThreadId); last != dumped_.end() && now - last->second < window_s)
      return false;
    // Kernel thread ids come and go; what is older than every window in use need not be kept.
    std::erase_if(dumped_, [&](const auto& entry) { return now - entry.second >= std::max(window_s, keep_s); });
    dumped_[kernelThreadId] = now;
    return true;
  }

private:
  static constexpr int64_t keep_s = 24 * 3600;
  checked_mutex mutex_;
  std::map<int32_t, int64_t> dumped_ TSA_GUARDED_BY(mutex_);
};

struct overdue_t {
  int32_t kernelThreadId;
  int64_t held_s;
  std::string name;
};

// The threads of `states` that have held for at least `period_s`, with their names.
std::vector<overdue_t> overdueHolders(const stateMap_t& states, int64_t now, int64_t period_s)
{
  std::vector<overdue_t> found;
  threadRegistry_t::instance().visit([&](const threads_t& threads) {
    for (const auto& [id, state] : states)
      if (lockRules_t::holds(state) && state.takenAt > 0 && now - state.takenAt >= period_s)
        found.push_back(
            {state.kernelThreadId, now - state.takenAt, threadRegistry_t::nameOf(threads, id, state.kernelThreadId)});
  });
  return found;
}

void reportOverdueHolders(const stateMap_t& states, const lockPeriod_t& period)
{
  static dumpedThreads_t& dumped = *new dumpedThreads_t;
  timespec now{};
  if (!lockSeam().backtracesEnabled() || clock_gettime(CLOCK_REALTIME, &now) != 0)
    return;
  constexpr int64_t century_s = 100LL * 365 * 24 * 3600;  // nobody holds longer, and the product below stays in range
  const int64_t period_s = std::clamp<int64_t>(period.wholeSeconds(), 0, century_s);
  for (const overdue_t& holder : overdueHolders(states, now.tv_sec, period_s)) {
    if (!dumped.due(holder.kernelThreadId, lockSeam().steadySeconds(), period_s * 8 / 3))
      continue;
    lockSeam().log(LogImpl::critical, "\nError: thread " + holder.name + " is holding a lock for too long (" +
                                          std::to_string(holder.held_s) +
                                          " seconds). Dumping the thread's backtrace...\n");
    if (!lockSeam().dumpBacktrace(holder.kernelThreadId))
      lockSeam().log(LogImpl::critical, "Error reporting thread's backtrace.");
  }
}

void reportFailure(const lockError_t& error, lockBackoff_t& backoff, lockPeriod_t& period,
                   std::string (*describe)(const lockError_t&))
{
  if (backoff.judge(error, lockSeam().steadySeconds()) == lockBackoff_t::verdict_t::stillActive) {
    lockSeam().log(LogImpl::critical, "ERROR: The same lock exception is still active.\n");
    return;
  }
  const std::string description = describe(error);
  std::cerr << description << std::flush;
  lockSeam().log(LogImpl::critical, description);
  reportOverdueHolders(error.states, period);
  period = boost::posix_time::minutes(5);  // an operator's shorter period has served when it has led to a report
}

}  // namespace

lockSeam_t& lockSeam()
{
  static constinit lockSeam_t seam = {writeToFrameworkLog, backtraceReportsEnabled, dumpBacktrace, steadySeconds};
  return seam;
}

constinit std::atomic<bool> frameworkLocks_t::lockDebug{false};
constinit std::atomic<bool> deadlockTestRuns{false};

void frameworkLocks_t::reportLockException(const lockError_t& error)
{
  static lockBackoff_t& backoff = *new lockBackoff_t;
  reportFailure(error, backoff, lock_t::lockingPeriod, &getExceptionDescription);
}

void frameworkLocks_t::reportActLockException(const lockError_t& error)
{
  static lockBackoff_t& backoff = *new lockBackoff_t;
  reportFailure(error, backoff, actLock_t::actLockingPeriod, &getActExceptionDescription);
}

void frameworkLocks_t::reportProblematicThreads(const stateMap_t& states)
{
  reportOverdueHolders(states, lock_t::lockingPeriod);
}

void frameworkLocks_t::bllDeadlockTest(bool start, std::ostream& out)
{
  deadlockTestRuns = start;
  out << (start ? "Deadlock test started." : "Deadlock test stopped.") << "\n";
}

void frameworkLocks_t::takeLockTest(bool start)
{
  if (!start)
    return;
  static thread_local std::minstd_rand random(static_cast<unsigned>(gettid()));
  constexpr int longest_us = 5000;
  std::this_thread::sleep_for(std::chrono::microseconds(std::uniform_int_distribution<>(0, longest_us)(random)));
}

bool frameworkLocks_t::lockCheck(lockType access)
{
  const auto mine = lock.getCallerState();
  const bool write = access == lockType::write;
  if (write ? mine.exclusiveCount > 0 : lockRules_t::holds(mine))
    return true;
  std::ostringstream text;
  text << "Lock access violation:\n Access: " << (write ? "Write" : "Read") << " Shared taken: " << mine.sharedCount
       << " Exclusive taken: " << mine.exclusiveCount << "\n";
  threadRegistry_t::instance().visit([&](const threads_t& threads) {
    writeThreadHeader(text);
    for (const auto& [id, thread] : threads)
      writeThreadRow(text, thread);
    // The log line's stamp says which kernel thread it was; without a row of its own it would be found nowhere.
    if (const auto self = boost::this_thread::get_id(); !threads.contains(self))
      writeThreadRow(text, {self, gettid(), pthread_self(), {}});
  });
  lockSeam().log(LogImpl::critical, text.str());
  return false;
}
