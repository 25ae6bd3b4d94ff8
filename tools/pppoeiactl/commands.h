// A command from its words to its exit status, and those that are the program's own.
#ifndef TOOLS_PPPOEIACTL_COMMANDS_H
#define TOOLS_PPPOEIACTL_COMMANDS_H

#include "tools/pppoeiactl/agent/context.h"

#include <functional>
#include <istream>
#include <string>

// Runs a command. Throws command_error.
void command_run(const context& context, const words& line);

// Runs a batch, one command a line. Errors go to standard error as "NAME:LINE: text"; the first ends the batch, unless
// `go_on`. The status of the first error, or exit_done.
exit_status batch_run(const context& context, std::istream& lines, const std::string& name, bool go_on);

// Gives a context to whom it is handed; each command has a connection of its own, so that it finds an agent that was
// restarted meanwhile.
using with_context = std::function<void(const std::function<void(const context&)>& use)>;

// Reads commands from standard input, which is a terminal, with history and completion, and runs them until "exit",
// "quit" or the end of input. Errors are printed. What was typed is kept in ~/.pppoeiactl_history.
void interactive_run(const with_context& with);

// Words that may take the place of the last one of `line`, which holds what was typed of it, for the shells. Command
// words and names of values come from the table of operations, bridges, ports and VLAN entries from the running agent;
// without an agent there are none of these.
words completions(const context& context, const words& line);

// Runs an operation with its inputs as words and prints what it tells. Records are given by --type, --kind, --parent
// and --location; the terminal of a report is this program's standard output unless --tty names one.
void operation_run(const context& context, const api::operation& operation, const words& inputs);

// "call ID ARG...": inputs in order, as `operation_run` takes them; of an id that has no operation, texts.
void call_run(const context& context, const words& line);

// "init": only once, unless --force stands behind it. An agent that is initialised again keeps its former workers
// running out of reach, and every frame is answered twice.
void init_run(const context& context, const given_words& given);

// "format set": the formats of a port and VLAN, with the mode that they need. Throws where the agent refuses.
void format_set_run(const context& context, const given_words& given);

// A refusal_teller: one line that names the object and the value, what is allowed and the command that shows it, for a
// result other than 0. `inputs` are those of the call. Asks the agent what there is; throws when it does not answer.
std::string refusal_text(const context& context, const api::operation& operation, const words& inputs, int32_t result);

#endif
