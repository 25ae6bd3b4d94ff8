// Commands that are operations.
#ifndef TOOLS_PPPOEIACTL_OPERATION_COMMAND_H
#define TOOLS_PPPOEIACTL_OPERATION_COMMAND_H

#include "tools/pppoeiactl/agent/context.h"

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

#endif
