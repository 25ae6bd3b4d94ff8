// "save": the agent's configuration as a batch file.
//
// Three sources: the getters; the report of each bridge (device names of some ports, CPEs, named VLANs); and macros,
// expanded on each port through the test operations, for what has no getter but a macro (names, types, descriptions,
// locations). What none of them tells is named in comments of the file.
#ifndef TOOLS_PPPOEIACTL_CONFIG_SAVE_H
#define TOOLS_PPPOEIACTL_CONFIG_SAVE_H

#include "tools/pppoeiactl/words/given_words.h"

inline constexpr char save_usage[] = "save [--no-trial] [BRIDGE...]";
inline constexpr char save_options[] = "--no-trial";

// Prints the file; with --json as a text. "--no-trial" leaves the test operations alone.
void save_run(const context& context, const given_words& given);

#endif
