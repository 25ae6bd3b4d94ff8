// How the program ends, and how a command says that it has to.
#ifndef TOOLS_PPPOEIACTL_WORDS_COMMAND_ERROR_H
#define TOOLS_PPPOEIACTL_WORDS_COMMAND_ERROR_H

#include <stdexcept>
#include <string>
#include <vector>

enum exit_status : int {
  exit_done = 0,
  exit_refused = 1,  // by the agent
  exit_usage = 2,
  exit_no_agent = 3,
  exit_time_out = 4,
  exit_busy = 5,           // the agent has no place for another connection
  exit_no_permission = 6,  // the agent's socket is not for this user
  exit_findings = 7,       // something was found: by a check, or differences
  exit_incomplete = 8,     // not all of it can be told
};

// The same for people, in the help and on the manual page.
inline constexpr char exit_statuses[] =
    "0 done, 1 refused by the agent, 2 usage, 3 no agent, 4 time-out, 5 no connection left at the agent, 6 no "
    "permission for the agent's socket, 7 something was found (check, diff, format check), 8 not all is known (save).";

// Thrown by commands, caught where one command ends: its text goes to standard error.
class command_error : public std::runtime_error {
public:
  command_error(exit_status status, const std::string& text) : std::runtime_error(text), status_(status) {}
  exit_status status() const { return status_; }

private:
  exit_status status_;
};

using words = std::vector<std::string>;

#endif
