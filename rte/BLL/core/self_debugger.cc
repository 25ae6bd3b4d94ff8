#include "rte/BLL/core/self_debugger.h"

#include "rte/BLL/core/crash_signals.h"
#include "rte/BLL/core/manager_log.h"
#include "rte/BLL/core/reporter_process.h"
#include <chrono>
#include <csignal>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr auto longestCall = std::chrono::milliseconds(1900);
using clock_t_ = std::chrono::steady_clock;

int remaining_ms(clock_t_::time_point deadline)
{
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock_t_::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

// The reporter's answer; false if none came.
bool receive(int socket, clock_t_::time_point deadline, std::string& text)
{
  pollfd wait{socket, POLLIN, 0};
  if (poll(&wait, 1, remaining_ms(deadline)) != 1)
    return false;
  std::vector<char> packet(longestReport + 1);
  const ssize_t size = recv(socket, packet.data(), packet.size(), MSG_DONTWAIT);
  if (size <= 0)
    return false;
  text.assign(packet.data(), static_cast<size_t>(size) - 1);
  return true;
}

}  // namespace

bool SelfDebugger::installCrashReports()
{
  const std::lock_guard guard(mutex_);
  const reporterProcess_t reporter = forkReporter();
  if (reporter.pid == 0)
    return false;
  prepareThread();
  crashSignalsInstall(reporter.socket);
  return true;
}

bool SelfDebugger::enableManualReports()
{
  const std::lock_guard guard(mutex_);
  if (!startReporter())
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
  const auto deadline = clock_t_::now() + longestCall;
  const std::unique_lock guard(mutex_, deadline);
  if (!guard.owns_lock() || !startReporter())
    return {};
  const reportRequest_t request{kernelThreadId, 0, 0};
  std::string text;
  if (send(requests_, &request, sizeof request, MSG_NOSIGNAL) != sizeof request || !receive(requests_, deadline, text))
    dropReporter();
  return text;
}

// Unless one runs. It is forked when it is first needed, and again when one has been lost.
bool SelfDebugger::startReporter()
{
  if (requests_ >= 0)
    return true;
  const reporterProcess_t reporter = forkReporter();
  reporter_ = reporter.pid;
  requests_ = reporter.socket;
  return requests_ >= 0;
}

// One that does not answer may hold a thread stopped: the kernel lets the thread go when its tracer is gone.
void SelfDebugger::dropReporter()
{
  kill(reporter_, SIGKILL);
  close(requests_);
  requests_ = -1;
}
