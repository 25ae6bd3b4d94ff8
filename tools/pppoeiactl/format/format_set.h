// "format set": the formats of a port and VLAN, with the mode that they need.
#ifndef TOOLS_PPPOEIACTL_FORMAT_FORMAT_SET_H
#define TOOLS_PPPOEIACTL_FORMAT_FORMAT_SET_H

#include "tools/pppoeiactl/words/given_words.h"

inline constexpr char format_set_usage[] =
    "format set BRIDGE PORT VLAN [--circuit-id FORMAT] [--remote-id FORMAT] [--mode MODE]";
inline constexpr char format_set_options[] = "--circuit-id= --remote-id= --mode=";

// What it calls, in order, each operation with the words behind its own. The mode comes first, custom where a Circuit
// ID format is given and no mode: until the format is there too, the bridge's is in force and not none at all. Throws
// where nothing is to be set.
std::vector<std::pair<const api::operation*, words>> format_set_calls(const given_words& given);

// Calls them. Throws where the agent refuses.
void format_set_run(const context& context, const given_words& given);

#endif
