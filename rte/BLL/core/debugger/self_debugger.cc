#include "rte/BLL/core/self_debugger.h"

#include "rte/BLL/core/debugger/reporter.h"
#include "rte/BLL/core/log/log_line.h"
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

reportDeadline_t deadlineFromNow()
{
  return std::chrono::steady_clock::now() + longestRequest;
}

// False if the deadline has come. Two who ask at once are rare enough to look again every few milliseconds;
// ThreadSanitizer does not know the wait of std::timed_mutex.
bool lockBy(checked_mutex& mutex, reportDeadline_t deadline) TSA_TRY_ACQUIRE(true, mutex)
{
  while (!mutex.try_lock()) {
    if (std::chrono::steady_clock::now() >= deadline)
      return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace

SelfDebugger::~SelfDebugger()
{
  dropReporter();
}

bool SelfDebugger::installCrashReports()
{
  static struct {
    checked_mutex mutex;
    bool done TSA_GUARDED_BY(mutex) = false;
  } installed;  // signals belong to the process, not to an object
  const auto deadline = deadlineFromNow();
  if (!lockBy(installed.mutex, deadline))
    return false;
  const mutex_guard guard(installed.mutex, std::adopt_lock);
  prepareThread();
  if (installed.done)
    return true;
  const reporterProcess_t reporter = forkReporter(deadline);
  if (reporter.pid != 0)
    catchCrashes(reporter);
  return installed.done = reporter.pid != 0;
}

bool SelfDebugger::enableManualReports()
{
  const auto deadline = deadlineFromNow();
  if (!lockBy(mutex_, deadline))
    return false;
  const mutex_guard guard(mutex_, std::adopt_lock);
  if (!startReporter(deadline))
    return false;
  manualReports_ = true;
  return true;
}

bool SelfDebugger::disableManualReports()
{
  manualReports_ = false;
  return true;
}

bool SelfDebugger::dumpBacktrace(int32_t kernelThreadId)
{
  const std::string stack = backtraceOf(kernelThreadId);
  if (stack.empty())
    return false;
  logAt(LogImpl::critical) << "Stack of thread " << std::to_string(kernelThreadId) << ":\n" << stack;
  return true;
}

std::string SelfDebugger::backtraceOf(int32_t kernelThreadId)
{
  const auto deadline = deadlineFromNow();
  std::string text;
  text.reserve(longestAnswer + 1);  // now: the thread may be held still with the heap's lock in its hands
  if (!lockBy(mutex_, deadline))
    return {};
  const mutex_guard guard(mutex_, std::adopt_lock);
  if (!startReporter(deadline))
    return {};
  // The one at hand may have been killed, or have ended itself; a new one gets one chance.
  if (!sendRequest(kernelThreadId) && !(startReporter(deadline) && sendRequest(kernelThreadId)))
    return {};
  if (!receiveAnswer(requests_, deadline, text))
    dropReporter();
  return text;
}

// Unless one runs for this process. It is forked when it is first needed, and again when one has been lost.
bool SelfDebugger::startReporter(std::chrono::steady_clock::time_point deadline)
{
  if (owner_ != getpid())
    dropReporter();
  if (requests_ >= 0)
    return true;
  const reporterProcess_t reporter = forkReporter(deadline);
  owner_ = getpid();
  reporter_ = reporter.pid;
  requests_ = reporter.socket;
  return requests_ >= 0;
}

bool SelfDebugger::sendRequest(int32_t kernelThreadId)
{
  const reportRequest_t request{kernelThreadId, 0, 0};
  letTrace(reporter_);
  if (send(requests_, &request, sizeof request, MSG_NOSIGNAL | MSG_DONTWAIT) == sizeof request)
    return true;
  dropReporter();
  return false;
}

// One that does not answer ends by its own alarm. It is not killed from here: its process id may be another's by now.
void SelfDebugger::dropReporter()
{
  if (requests_ >= 0)
    close(requests_);
  requests_ = -1;
}
