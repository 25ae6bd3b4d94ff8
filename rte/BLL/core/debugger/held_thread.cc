#include "rte/BLL/core/debugger/held_thread.h"

#include <sys/ptrace.h>
#include <sys/wait.h>
#include <thread>

heldThread_t::heldThread_t(pid_t thread, std::chrono::milliseconds longest) : thread_(thread)
{
  if (ptrace(PTRACE_SEIZE, thread, nullptr, nullptr) != 0)
    return;
  state_ = state_t::pending;
  ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr);
  const auto deadline = std::chrono::steady_clock::now() + longest;
  for (;;) {
    int status = 0;
    const pid_t stopped = waitpid(thread, &status, __WALL | WNOHANG);
    if (stopped != 0) {
      state_ = stopped == thread && WIFSTOPPED(status) ? state_t::held : state_t::notOurs;
      const bool byRequest = (status >> 16) == PTRACE_EVENT_STOP;
      signal_ = isHeld() && !byRequest ? WSTOPSIG(status) : 0;
      return;
    }
    if (std::chrono::steady_clock::now() >= deadline)
      return;
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
}

heldThread_t::~heldThread_t()
{
  if (isHeld())
    ptrace(PTRACE_DETACH, thread_, nullptr, static_cast<long>(signal_));
}
