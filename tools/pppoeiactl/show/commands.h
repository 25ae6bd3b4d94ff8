// Commands that tell what there is and what happens.
#ifndef TOOLS_PPPOEIACTL_SHOW_COMMANDS_H
#define TOOLS_PPPOEIACTL_SHOW_COMMANDS_H

#include "tools/pppoeiactl/agent/context.h"

// "show": everything that the getters tell, each bridge with its ports and their entries.
void show_all_run(const context& context, const given_words& given);

// One of them or all.
void show_bridge_run(const context& context, const given_words& given);
void show_vlan_run(const context& context, const given_words& given);
void show_port_run(const context& context, const given_words& given);
void show_port_vlan_run(const context& context, const given_words& given);

// "show lines": one row a line. A word with "=", "!=" or "~" in it (is, is not, has in it) chooses lines by a column,
// other words are bridges. Identifiers are those of frames without a VLAN. JSON has all columns.
void show_lines_run(const context& context, const given_words& given);

// The same of one bridge, brief.
void show_lines_of(const context& context, const std::string& bridge);

// "lines" tells who is on which line, and how far each dial-in has come: a table, or with --client all that is known of
// that client's lines.
void lines_run(const context& context, const given_words& given);

// "monitor" tells of each frame as it passes: what was done with it, and why. A line a frame, or with --pcap (- is
// standard output) a capture file with each frame as it came and as it left.
void monitor_run(const context& context, const given_words& given);

#endif
