// The agent as the model's counterpart: steps go in by the door that management clients use and by a bridge's packet
// socket, and everything that can be seen of them comes out.
#ifndef FUZZ_OPERATIONS_OPERATIONS_AGENT_H
#define FUZZ_OPERATIONS_OPERATIONS_AGENT_H

#include "fuzz/operations/operations_model.h"
#include "tests/support/fake_kernel.h"

namespace operations {

// One agent, not initialised yet, on a machine of its own. One at a time: the agent's state is the process's.
class real_agent {
public:
  explicit real_agent(const node& machine);
  ~real_agent();
  real_agent(const real_agent&) = delete;
  real_agent& operator=(const real_agent&) = delete;

  outcome run(const step& now);

  // Ends it, in order. How many descriptors it left open.
  size_t end();

  // Where the record of the last step stood; 0 if that was none.
  uintptr_t where() const { return where_; }
  bool has_bridge(const string& name) const;

  // Whether the last step took so long, on a machine that is busy, that its report may have been given up; then the
  // time for which the user's next ones are refused is over, too.
  bool was_late() const { return late_; }

private:
  outcome call(const step& now);
  outcome frame(const step& now);

  fake_kernel machine_;
  size_t open_before_;  // by agents that kept theirs
  string terminal_;
  const kernel_ops* former_;
  uintptr_t where_ = 0;
  bool late_ = false;
};

}  // namespace operations

#endif
