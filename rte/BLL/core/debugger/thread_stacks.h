// The stacks of another process's threads, as text.
#ifndef RTE_BLL_CORE_DEBUGGER_THREAD_STACKS_H
#define RTE_BLL_CORE_DEBUGGER_THREAD_STACKS_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

struct Dwfl;

// Knows the programs and libraries that the process has mapped when this is made. For one thread of a process that may
// trace the other.
class processStacks_t {
public:
  // Reading the line tables of a large program from a slow disk takes its time: after `linesFor` from now, names of
  // functions must do.
  processStacks_t(pid_t process, std::chrono::milliseconds linesFor);

  // One line a frame: number, address, function, and source line or library where they are known. `afterSignal` leaves
  // out what ran above the last signal handler, the handler included. Empty if there is no such thread in the process,
  // or it may not be traced, or does not stop.
  std::string of(int32_t kernelThreadId, bool afterSignal);

  // A thread did not stop in time: the caller has to end, so that the kernel lets the thread go.
  bool leftThreadPending() const { return pending_; }

private:
  struct end_t {
    void operator()(Dwfl* dwfl) const;
  };
  std::string describe(size_t number, uint64_t address, bool interrupted) const;

  pid_t process_;
  std::unique_ptr<Dwfl, end_t> dwfl_;  // null if the process cannot be inspected
  std::chrono::steady_clock::time_point linesUntil_;
  bool pending_ = false;
};

// Of every thread of the process, ascending.
std::vector<int32_t> threadsOf(pid_t process);
// As the kernel keeps it (15 characters); empty if the thread is gone.
std::string threadName(pid_t process, int32_t kernelThreadId);

#endif
