// The lines of a batch file that make a port anew.
#ifndef TOOLS_PPPOEIACTL_SAVED_PORT_H
#define TOOLS_PPPOEIACTL_SAVED_PORT_H

#include "tools/pppoeiactl/bridge_report.h"
#include "tools/pppoeiactl/format_trial.h"

// Where the lines of one bridge come from.
struct save_source {
  const context& with;
  const std::string& bridge;
  const bridge_report& report;
  format_trial* trial;  // null: not wanted
};

// A getter and the setter that takes what it tells behind the same first arguments.
struct setting_pair {
  std::string_view setter;
  std::string_view getter;
  bool may_be_unset = false;  // numbers that are all ones were never set
};

// "port trust set br0 1 untrusted\n"; empty when the setting does not apply, or is an empty text or was never set.
std::string setting_line(const context& context, const setting_pair& pair, const words& object);

// A command with its words quoted where needed, without the end of the line.
std::string command_line(std::string_view command, const words& arguments);

// Everything of the port and its VLAN entries.
std::string saved_port(const save_source& from, uint32_t port);

#endif
