// One command, from its words to its exit status.
#ifndef TOOLS_PPPOEIACTL_COMMAND_H
#define TOOLS_PPPOEIACTL_COMMAND_H

#include "tools/pppoeiactl/agent/context.h"

#include <istream>
#include <string>

// Runs a command. Throws command_error.
void command_run(const context& context, const words& line);

// Runs a batch, one command a line. Errors go to standard error as "NAME:LINE: text"; the first ends the batch, unless
// `go_on`. The status of the first error, or exit_done.
exit_status batch_run(const context& context, std::istream& lines, const std::string& name, bool go_on);

#endif
