// The running agent as a card.
#ifndef TOOLS_PPPOEIACTL_CONFIG_CARD_READ_H
#define TOOLS_PPPOEIACTL_CONFIG_CARD_READ_H

#include "tools/pppoeiactl/config/card.h"

#include <set>

namespace config {

struct read_options {
  bool trial = true;            // use the agent's test operations: without them, no value that only a macro tells
  std::set<std::string> names;  // bridges to look for beside those that discovery.h finds
};

// Reads all. Where no getter tells a value, the agent's report of the bridge, macros expanded by its test operations
// and the memory (memory.h) do; a port whose device none of these tells gets an entry for a VLAN that no frame can have
// for a moment, because the report shows ports with entries. What nothing tells stays without a value. Throws
// command_error.
card card_read(const context& context, const read_options& options);

}  // namespace config

#endif
