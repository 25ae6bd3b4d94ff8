// Commands that are operations: their words stand in the API table.
#ifndef TOOLS_PPPOEIACTL_OPERATION_COMMAND_H
#define TOOLS_PPPOEIACTL_OPERATION_COMMAND_H

#include "tools/pppoeiactl/context.h"

// Whether a person writes the argument as a word of its own.
bool is_written(const api::argument& argument);

// A command's words as the operation takes them: in its order, records gathered as one list, each checked for its kind.
words operation_inputs(const api::operation& operation, const words& line);

// Runs an operation with its inputs as words and prints what it tells. Records are given by --type, --kind, --parent
// and --location; the terminal of a report is this program's standard output unless --tty names one.
void operation_run(const context& context, const api::operation& operation, const words& inputs);

// What an operation that reports to a terminal writes there. `inputs` are its arguments without the terminal. Throws
// unless the result is 0.
std::string report_of(const context& context, const api::operation& operation, words inputs);

// "call ID ARG...": inputs in order, as `operation_run` takes them; of an id that has no operation, texts.
void call_run(const context& context, const words& line);

// The id there. Throws for what is none.
uint16_t call_id_parse(const words& line);

// "bridge vlan set BRIDGE VLAN ENABLE": the command with its inputs.
std::string operation_usage(const api::operation& operation);

// The options that stand in it, "=" behind each that takes a value.
std::string_view operation_options(const api::operation& operation);

#endif
