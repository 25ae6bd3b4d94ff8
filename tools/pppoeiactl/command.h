// One command, from its words to its exit status.
#ifndef TOOLS_PPPOEIACTL_COMMAND_H
#define TOOLS_PPPOEIACTL_COMMAND_H

#include "tools/pppoeiactl/context.h"

#include <istream>
#include <string>
#include <vector>

// Runs a command. Throws command_error.
void command_run(const context& context, const words& line);

// Runs a batch, one command a line. Errors go to standard error as "NAME:LINE: text"; the first ends the batch, unless
// `go_on`. The status of the first error, or exit_done.
exit_status batch_run(const context& context, std::istream& lines, const std::string& name, bool go_on);

// A command with its arguments, and what it does.
struct command_help {
  std::string usage;
  std::string summary;
};

// All commands: the special ones, then the operations in the order of their ids.
std::vector<command_help> command_helps();

// The same as a text.
std::string command_list();

#endif
