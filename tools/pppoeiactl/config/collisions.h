// Lines of one bridge that would get the same identifier.
#ifndef TOOLS_PPPOEIACTL_CONFIG_COLLISIONS_H
#define TOOLS_PPPOEIACTL_CONFIG_COLLISIONS_H

#include "tools/pppoeiactl/config/card.h"

namespace config {

// Ports that share an identifier, ascending, and what it is.
struct collision {
  std::string what;  // "Circuit ID 'line 1'", with <VLAN> and the like for what a frame brings
  std::vector<uint32_t> ports;
};

// Of the subscribers' ports; for a VLAN with an entry by that entry, for all others by the port. What the card or the
// node gives all lines alike stands as its macro; an identifier that is empty is none.
std::vector<collision> collisions_of(const bridge& bridge);

}  // namespace config

#endif
