// Commands about a card as a whole.
#ifndef TOOLS_PPPOEIACTL_CONFIG_COMMANDS_H
#define TOOLS_PPPOEIACTL_CONFIG_COMMANDS_H

#include "tools/pppoeiactl/agent/context.h"

namespace config {

// "check FILE": what is wrong or doubtful about a file, without an agent. Ends with exit_usage for a file that cannot
// be applied, exit_findings for one with warnings only.
void check_run(const context& context, const given_words& given);

// "diff FILE" prints the commands that would make the running agent the file's card. Ends with exit_findings when there
// are any.
void diff_run(const context& context, const given_words& given);

// "apply FILE" runs them. What was done by one that failed is undone.
void apply_run(const context& context, const given_words& given);

// "confirm" tells the tool that waits behind "apply --confirm" that what it did is to stay.
void confirm_run(const context& context, const given_words& given);

// "save" prints the agent's configuration as a batch file; with --json as a text. "--no-trial" leaves the test
// operations alone. There are three sources: the getters; the report of each bridge (device names of some ports, CPEs,
// named VLANs); and macros, expanded on each port through the test operations, for what has no getter but a macro
// (names, types, descriptions, locations). What none of them tells is named in comments of the file.
void save_run(const context& context, const given_words& given);

}  // namespace config

#endif
