// How the program ends.
#ifndef TOOLS_PPPOEIACTL_EXIT_STATUS_H
#define TOOLS_PPPOEIACTL_EXIT_STATUS_H

enum exit_status : int {
  exit_done = 0,
  exit_refused = 1,  // by the agent
  exit_usage = 2,
  exit_no_agent = 3,
  exit_time_out = 4,
  exit_busy = 5,           // the agent has no place for another connection
  exit_no_permission = 6,  // the agent's socket is not for this user
  exit_found = 7,          // something was found: errors of identifiers, warnings, or differences
  exit_incomplete = 8,     // not all of it can be told
};

#endif
