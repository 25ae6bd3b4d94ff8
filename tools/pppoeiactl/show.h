// What the getters tell of a bridge, a port, a port's VLAN entries, gathered.
#ifndef TOOLS_PPPOEIACTL_SHOW_H
#define TOOLS_PPPOEIACTL_SHOW_H

#include "tools/pppoeiactl/report.h"

// Highest port id that is looked for where no id is given: no operation tells how many ports a bridge has.
inline constexpr uint32_t ports_looked_for = 1024;

report show_bridge(const context& context, const std::string& bridge);
report show_port(const context& context, const std::string& bridge, uint32_t port);

// Ids of the ports that exist, up to `most`.
std::vector<uint32_t> ports_of(const context& context, const std::string& bridge, uint32_t most = ports_looked_for);

// The port's entries, ascending by VLAN.
std::vector<report> show_port_vlans(const context& context, const std::string& bridge, uint32_t port);

// "show bridge BRIDGE", "show port BRIDGE [PORT]", "show port-vlan BRIDGE PORT": prints them.
void show_run(const context& context, const words& line);

#endif
