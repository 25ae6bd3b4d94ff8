// What exists in the agent, found by asking: no operation lists bridges or ports.
#ifndef TOOLS_PPPOEIACTL_AGENT_DISCOVERY_H
#define TOOLS_PPPOEIACTL_AGENT_DISCOVERY_H

#include "tools/pppoeiactl/agent/context.h"

#include <cstdint>

bool is_initialised(const context& context);

// Bridges that the agent knows, in order of their numbers. Looked for under the names that this host's kernel bridges
// and network devices suggest, and br0 to br99.
words bridges_of(const context& context);

// Ids of the ports that exist, ascending. Throws for a bridge that does not.
std::vector<uint32_t> ports_of(const context& context, const std::string& bridge);

// VLANs enabled on the bridge, ascending.
std::vector<uint16_t> vlans_of(const context& context, const std::string& bridge);

// The entry that an operation told with its last argument.
pppoeia_port_vlan_entry told_entry(const agent_client::answer& answer);

// The port's VLAN entries, ascending by VLAN.
std::vector<pppoeia_port_vlan_entry> port_vlans_of(const context& context, const std::string& bridge, uint32_t port);

#endif
