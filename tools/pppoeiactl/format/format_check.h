// "format check": goes over all lines of a bridge and reports identifiers that will make trouble.
#ifndef TOOLS_PPPOEIACTL_FORMAT_FORMAT_CHECK_H
#define TOOLS_PPPOEIACTL_FORMAT_FORMAT_CHECK_H

#include "tools/pppoeiactl/words/given_words.h"

inline constexpr char format_check_usage[] = "format check BRIDGE";

// Lines are the ports without a VLAN and their VLAN entries; ports on the network's side get no identifiers. Prints
// one finding a cause with the lines that it concerns, or a JSON object with a list of them. Throws exit_findings where
// there are any.
void format_check_run(const context& context, const given_words& given);

#endif
