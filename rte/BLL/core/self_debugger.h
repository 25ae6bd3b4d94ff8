// Tells where threads are: the stacks of all of them when the process crashes, and of one on request.
//
// A process that has gone wrong is not asked to inspect itself. A reporter process, forked beforehand, waits for a
// request, attaches to this process (ptrace(2)), walks the stacks with elfutils' libdwfl and names functions and lines.
// Its report of a crash goes to the system log (LOG_CRIT) and to standard error, one line a frame; the stack of a
// thread comes back and is logged in the framework log, beside the report that asked for it. The reporter ends with
// this process. While a thread's stack is read the thread is held still, for some milliseconds.
//
// Reached as singleton<SelfDebugger>::instance(). Any thread may call; nothing but std::bad_alloc is thrown, and no
// call takes longer than two seconds. Where attaching is not allowed (a container may forbid it), stacks are answered
// with failure, and the report of a crash says so.
#ifndef RTE_BLL_CORE_SELF_DEBUGGER_H
#define RTE_BLL_CORE_SELF_DEBUGGER_H

#include "base/thread_annotations.h"
#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <sys/types.h>

struct reporterProcess_t;

class SelfDebugger {
public:
  SelfDebugger() = default;
  ~SelfDebugger();  // ends its reporter; crash reports stay
  SelfDebugger(const SelfDebugger&) = delete;
  SelfDebugger& operator=(const SelfDebugger&) = delete;

  // From now on a crash (SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT) leaves a report, and the process still dies by its
  // signal, at most ten seconds later. To be called early, but after daemon(3): the reporter is a copy of the process
  // at that time, and a child that the process forks is not reported. Once is enough for the whole process. False if
  // there is no reporter.
  bool installCrashReports();
  // Gives the calling thread a stack of its own for the crash of having used its stack up; without it such a crash
  // leaves no report. The thread that installs and threads that register with the manager have one. Lasts as long as
  // the thread.
  static void prepareThread();

  // Stacks of threads on request: switched on and off by operators, off at first. Enabling answers false, and changes
  // nothing, if there is no reporter.
  bool enableManualReports();
  bool disableManualReports();
  bool areBacktraceReportsEnabled() const { return manualReports_; }
  // Logs the stack of a thread of this process, at critical level; whether reports are enabled is the caller's
  // business. False if there is no such thread, or its stack could not be had in time.
  bool dumpBacktrace(int32_t kernelThreadId);
  // The stack as text, a line a frame; empty on failure.
  std::string backtraceOf(int32_t kernelThreadId);

private:
  // From now on a fatal signal is told to the reporter before the process dies by it. To be called once.
  static void catchCrashes(const reporterProcess_t& reporter);
  bool startReporter(std::chrono::steady_clock::time_point deadline) TSA_REQUIRES(mutex_);
  bool sendRequest(int32_t kernelThreadId) TSA_REQUIRES(mutex_);
  void dropReporter() TSA_REQUIRES(mutex_);

  std::atomic<bool> manualReports_ = false;
  checked_mutex mutex_;                       // held while the reporter works
  pid_t owner_ TSA_GUARDED_BY(mutex_) = 0;    // process that the reporter was forked for
  int requests_ TSA_GUARDED_BY(mutex_) = -1;  // socket to the reporter
  pid_t reporter_ TSA_GUARDED_BY(mutex_) = 0;
};

#endif
