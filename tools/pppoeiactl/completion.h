// What may stand next on a command line, for the shells.
#ifndef TOOLS_PPPOEIACTL_COMPLETION_H
#define TOOLS_PPPOEIACTL_COMPLETION_H

#include "tools/pppoeiactl/agent/context.h"

// Words that may take the place of the last one of `line`, which holds what was typed of it. Command words and names
// of values come from the table of operations, bridges, ports and VLAN entries from the running agent; without an
// agent there are none of these.
words completions(const context& context, const words& line);

#endif
