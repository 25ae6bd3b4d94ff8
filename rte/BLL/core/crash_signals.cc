// The handler runs in a process that has gone wrong, perhaps with its heap or a lock broken: it only sends a packet,
// waits for the answer and lets the signal take its course.
#include "rte/BLL/core/crash_signals.h"

#include "rte/BLL/core/reporter_process.h"
#include "rte/BLL/core/self_debugger.h"
#include <atomic>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int longestReport_ms = 10'000;
constexpr size_t alternateStackSize = 64 * 1024;

std::atomic<int> reporterSocket = -1;
std::atomic_flag crashing;

void dieBy(int signal)
{
  std::signal(signal, SIG_DFL);
  syscall(SYS_tgkill, getpid(), gettid(), signal);  // comes when the handler returns
}

void onCrash(int signal, siginfo_t* info, void*)
{
  const int error = errno;
  if (crashing.test_and_set()) {
    // Another thread's crash is being reported; this one would only cut it short. Its own signal ends it afterwards.
    pollfd none{-1, 0, 0};
    poll(&none, 1, longestReport_ms);
  } else {
    const reportRequest_t request{gettid(), signal, reinterpret_cast<uint64_t>(info->si_addr)};
    pollfd wait{reporterSocket, POLLIN, 0};
    if (send(reporterSocket, &request, sizeof request, MSG_NOSIGNAL | MSG_DONTWAIT) == sizeof request)
      poll(&wait, 1, longestReport_ms);
  }
  errno = error;
  dieBy(signal);
}

// A stack for signal handlers, which ends with its thread.
class alternateStack_t {
public:
  alternateStack_t()
  {
    memory_ = mmap(nullptr, alternateStackSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    const stack_t stack = {memory_, 0, alternateStackSize};
    if (memory_ != MAP_FAILED)
      sigaltstack(&stack, nullptr);
  }
  ~alternateStack_t()
  {
    const stack_t none = {nullptr, SS_DISABLE, 0};
    if (memory_ == MAP_FAILED)
      return;
    sigaltstack(&none, nullptr);
    munmap(memory_, alternateStackSize);
  }
  alternateStack_t(const alternateStack_t&) = delete;
  alternateStack_t& operator=(const alternateStack_t&) = delete;

private:
  void* memory_;
};

}  // namespace

void crashSignalsInstall(int socket)
{
  reporterSocket = socket;
  struct sigaction action = {};
  action.sa_sigaction = onCrash;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigemptyset(&action.sa_mask);
  for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT})
    sigaction(signal, &action, nullptr);
}

void SelfDebugger::prepareThread()
{
  static thread_local const alternateStack_t stack;
  (void)stack;
}
