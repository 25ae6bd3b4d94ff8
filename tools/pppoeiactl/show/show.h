// What the getters tell of the process, a bridge, a port, a port's VLAN entries, gathered.
#ifndef TOOLS_PPPOEIACTL_SHOW_SHOW_H
#define TOOLS_PPPOEIACTL_SHOW_SHOW_H

#include "tools/pppoeiactl/report.h"
#include "tools/pppoeiactl/words/given_words.h"

report show_node(const context& context);
report show_bridge(const context& context, const std::string& bridge);
report show_port(const context& context, const std::string& bridge, uint32_t port);

// The port's entries, ascending by VLAN.
std::vector<report> show_port_vlans(const context& context, const std::string& bridge, uint32_t port);

// Everything, each bridge with its ports and their entries.
void show_all_run(const context& context, const given_words& given);

// One of them or all.
void show_bridge_run(const context& context, const given_words& given);
void show_vlan_run(const context& context, const given_words& given);
void show_port_run(const context& context, const given_words& given);
void show_port_vlan_run(const context& context, const given_words& given);

#endif
