// What the getters tell of the process, a bridge, a port, a port's VLAN entries, gathered.
#ifndef TOOLS_PPPOEIACTL_SHOW_H
#define TOOLS_PPPOEIACTL_SHOW_H

#include "tools/pppoeiactl/report.h"

inline constexpr char show_usage[] =
    "show [all [BRIDGE...]] | bridge [BRIDGE] | vlan BRIDGE | port BRIDGE [PORT] | port-vlan BRIDGE PORT";

report show_node(const context& context);
report show_bridge(const context& context, const std::string& bridge);
report show_port(const context& context, const std::string& bridge, uint32_t port);

// The port's entries, ascending by VLAN.
std::vector<report> show_port_vlans(const context& context, const std::string& bridge, uint32_t port);

// Prints what `show_usage` says: one of them alone, or everything, each bridge with its ports and their entries.
void show_run(const context& context, const words& line);

#endif
