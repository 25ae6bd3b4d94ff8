// Doing the commands of a plan.
#ifndef TOOLS_PPPOEIACTL_CONFIG_RUN_PLAN_H
#define TOOLS_PPPOEIACTL_CONFIG_RUN_PLAN_H

#include "tools/pppoeiactl/config/memory.h"
#include "tools/pppoeiactl/config/plan.h"

namespace config {

struct run_result {
  size_t done = 0;                 // commands that the agent granted
  std::string failure;             // empty, or the command that it refused and why
  exit_status status = exit_done;  // of the failure
  bool memory_kept = true;         // what has no getter was noted

  bool ok() const { return failure.empty(); }
};

// The commands in order, those of one object on their way together. Nothing behind the object of the first refusal is
// begun; of that object's own commands all that were on their way are done, as far as they are granted.
run_result plan_run(const context& context, const plan& plan, const memory& memory);

}  // namespace config

#endif
