// The handler runs in a process that has gone wrong, perhaps with its heap or a lock broken: it only sends a packet,
// waits for the answer and lets the signal take its course.
#include "rte/BLL/core/debugger/reporter.h"
#include "rte/BLL/core/self_debugger.h"
#include <atomic>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <ucontext.h>
#include <unistd.h>

namespace {

constexpr size_t alternateStackSize = 64 * 1024;

reporterProcess_t crashReporter;  // both written once, before the handler is installed
pid_t reportedProcess;
std::atomic_flag crashing;

// Takes back a call to where there is no code, such as through a null pointer: no unwinder knows a way on from there,
// but the caller's address is at hand. For the time of the report only, so that a core file shows what was.
class callTakenBack_t {
public:
  callTakenBack_t(mcontext_t& machine, const void* fault) : machine_(machine), before_(machine)
  {
#if defined(__x86_64__)
    greg_t* const registers = machine.gregs;
    greg_t caller = 0;
    // A register holds the address as a number. NOLINTNEXTLINE(performance-no-int-to-ptr)
    const iovec to{&caller, sizeof caller}, from{reinterpret_cast<void*>(registers[REG_RSP]), sizeof caller};
    // Read by the kernel, as the stack pointer may be anything.
    if (registers[REG_RIP] != reinterpret_cast<greg_t>(fault) ||
        process_vm_readv(getpid(), &to, 1, &from, 1, 0) != sizeof caller)
      return;
    registers[REG_RIP] = caller - 1;
    registers[REG_RSP] += static_cast<greg_t>(sizeof caller);
#elif defined(__aarch64__)
    if (machine.pc == reinterpret_cast<uint64_t>(fault))
      machine.pc = machine.regs[30] - 4;
#else
    (void)fault;
#endif
  }
  ~callTakenBack_t()
  {
    machine_ = before_;
  }
  callTakenBack_t(const callTakenBack_t&) = delete;
  callTakenBack_t& operator=(const callTakenBack_t&) = delete;

private:
  mcontext_t& machine_;
  const mcontext_t before_;
};

void waitFor(int socket)
{
  pollfd wait{socket, POLLIN, 0};
  poll(&wait, socket < 0 ? 0 : 1, static_cast<int>(longestCrashReport.count()));
}

void askForReport(int signal, const siginfo_t& info, mcontext_t& machine)
{
  const bool byKernel = info.si_code > 0;  // only then has si_addr a meaning
  const callTakenBack_t guard(machine, byKernel && signal == SIGSEGV ? info.si_addr : &machine);
  const uint64_t address = byKernel ? reinterpret_cast<uint64_t>(info.si_addr) : 0;
  const reportRequest_t request{gettid(), signal, address};
  letTrace(crashReporter.pid);
  if (send(crashReporter.socket, &request, sizeof request, MSG_NOSIGNAL | MSG_DONTWAIT) == sizeof request)
    waitFor(crashReporter.socket);
}

void dieBy(int signal)
{
  std::signal(signal, SIG_DFL);
  syscall(SYS_tgkill, getpid(), gettid(), signal);  // comes when the handler returns
}

// All other signals are blocked meanwhile, so that none cuts the report short; a crash in here is the end at once.
void onCrash(int signal, siginfo_t* info, void* context)
{
  const int error = errno;
  if (getpid() == reportedProcess) {  // not in a forked child: the reporter knows nothing of it
    if (!crashing.test_and_set())
      askForReport(signal, *info, static_cast<ucontext_t*>(context)->uc_mcontext);
    else
      waitFor(-1);  // another thread's crash is being reported, and will end this one too
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
      sigaltstack(&stack, &before_);
  }
  ~alternateStack_t()
  {
    if (memory_ == MAP_FAILED)
      return;
    sigaltstack(&before_, nullptr);
    munmap(memory_, alternateStackSize);
  }
  alternateStack_t(const alternateStack_t&) = delete;
  alternateStack_t& operator=(const alternateStack_t&) = delete;

private:
  void* memory_;
  stack_t before_ = {nullptr, SS_DISABLE, 0};  // a sanitizer's, for example
};

}  // namespace

void SelfDebugger::catchCrashes(const reporterProcess_t& reporter)
{
  crashReporter = reporter;
  reportedProcess = getpid();
  struct sigaction action = {};
  action.sa_sigaction = onCrash;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigfillset(&action.sa_mask);
  for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT})
    sigaction(signal, &action, nullptr);
}

void SelfDebugger::prepareThread()
{
  static thread_local const alternateStack_t stack;
  (void)stack;
}
