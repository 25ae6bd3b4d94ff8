// The running agent as a card.
#ifndef TOOLS_PPPOEIACTL_CONFIG_CARD_READ_H
#define TOOLS_PPPOEIACTL_CONFIG_CARD_READ_H

#include "tools/pppoeiactl/config/card.h"

#include <set>

namespace config {

struct read_options {
  bool trial = true;            // probe ports and use the test operations: else no value that only a macro tells
  std::set<std::string> names;  // bridges to look for beside those that discovery.h finds
};

// Reads all. Where no getter tells a value, the agent's report of the bridge, macros (port_probe.h) and the memory
// (memory.h) do. What nothing tells stays without a value. Throws command_error.
card card_read(const context& context, const read_options& options);

}  // namespace config

#endif
