// Commands about formats and the identifiers that come of them.
#ifndef TOOLS_PPPOEIACTL_FORMAT_COMMANDS_H
#define TOOLS_PPPOEIACTL_FORMAT_COMMANDS_H

#include "tools/pppoeiactl/agent/context.h"

// "explain" tells how a line's identifiers come about.
void explain_run(const context& context, const given_words& given);

// "format explain" tells how a format is read. Without a bridge the agent is not asked.
void format_explain_run(const context& context, const given_words& given);

// "format check" goes over all lines of a bridge and reports identifiers that will make trouble. Lines are the ports
// without a VLAN and their VLAN entries; ports on the network's side get no identifiers. Prints one finding a cause
// with the lines that it concerns, or a JSON object with a list of them. Throws exit_findings where there are any.
void format_check_run(const context& context, const given_words& given);

// "format test" sets the agent's format test data and expands test formats, showing the agent's answers. What is given
// is set and stays set; then the formats given are expanded, both when neither is. Mode "test", which is the default,
// takes line numbers from the test data too, "available" from the port.
void format_test_run(const context& context, const given_words& given);

#endif
