// What the agent writes to terminals, and what only its report of a bridge tells, read from the text.
#ifndef TOOLS_PPPOEIACTL_AGENT_BRIDGE_REPORT_H
#define TOOLS_PPPOEIACTL_AGENT_BRIDGE_REPORT_H

#include "tools/pppoeiactl/agent/context.h"
#include "tools/report_terminal/report_terminal.h"

#include <cstdint>
#include <map>

struct reported_port {
  std::string device;
  std::string name;
  std::string cpe_serial;  // empty when the report leaves the port's CPE out
  std::string cpe_mac;
};

struct bridge_report {
  std::map<uint32_t, reported_port> ports;  // those with VLAN entries or a CPE serial number
  std::map<uint16_t, std::string> vlans;    // the named ones
};

// Texts stand in the report without escapes. What cannot be read with certainty is left out.
bridge_report bridge_report_parse(const std::string& text);

// What the agent wrote there of which it says that the operation is done. Throws when that is nothing: it does not wait
// long for a terminal.
std::string report_taken(const report_terminal& terminal);

// What an operation that reports to a terminal writes there. `inputs` are its arguments without the terminal. Throws
// unless the result is 0 and something was written.
std::string report_of(const context& context, const api::operation& operation, words inputs);

bridge_report bridge_report_read(const context& context, const std::string& bridge);

#endif
