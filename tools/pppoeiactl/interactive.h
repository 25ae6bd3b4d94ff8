// Commands from a terminal, with history and completion.
#ifndef TOOLS_PPPOEIACTL_INTERACTIVE_H
#define TOOLS_PPPOEIACTL_INTERACTIVE_H

#include "tools/pppoeiactl/agent/context.h"

#include <functional>

// Gives a context to whom it is handed; each command has a connection of its own, so that it finds an agent that was
// restarted meanwhile.
using with_context = std::function<void(const std::function<void(const context&)>& use)>;

// Reads commands from standard input, which is a terminal, and runs them until "exit", "quit" or the end of input.
// Errors are printed. What was typed is kept in ~/.pppoeiactl_history.
void interactive_run(const with_context& with);

#endif
