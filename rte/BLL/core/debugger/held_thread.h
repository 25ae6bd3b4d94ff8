// A thread of another process, held still while its stack is read. Not installed.
#pragma once

#include <chrono>
#include <sys/types.h>

// Seizes the thread (ptrace(2)) and lets it go at the end. No SIGSTOP is sent: should the tracer die in between, the
// thread simply goes on, where a SIGSTOP on its way would stop the whole process. Like any stop it ends a few system
// calls with EINTR that the kernel does not restart (epoll_wait(2), see signal(7)).
class heldThread_t {
public:
  heldThread_t(pid_t thread, std::chrono::milliseconds longest);
  ~heldThread_t();
  heldThread_t(const heldThread_t&) = delete;
  heldThread_t& operator=(const heldThread_t&) = delete;

  bool isHeld() const { return state_ == state_t::held; }
  // It was asked to stop and did not in time, deep in a driver perhaps. It will stop as soon as it comes back, and
  // nobody but the end of this process can take that back.
  bool isPending() const { return state_ == state_t::pending; }

private:
  enum class state_t { notOurs, pending, held };
  state_t state_ = state_t::notOurs;
  pid_t thread_;
  int signal_ = 0;  // it was just about to get; delivered when it goes on
};
