// "explain" tells how a line's identifiers come about, "format explain" how a format is read.
#ifndef TOOLS_PPPOEIACTL_FORMAT_EXPLAIN_H
#define TOOLS_PPPOEIACTL_FORMAT_EXPLAIN_H

#include "tools/pppoeiactl/words/given_words.h"

inline constexpr char explain_usage[] = "explain BRIDGE PORT VLAN [CVID]";
inline constexpr char format_explain_usage[] = "format explain FORMAT [BRIDGE PORT VLAN [CVID]]";

void explain_run(const context& context, const given_words& given);

// Without a bridge the agent is not asked.
void format_explain_run(const context& context, const given_words& given);

#endif
