// A card's whole configuration, as a file says it or as the agent has it.
#ifndef TOOLS_PPPOEIACTL_CONFIG_CARD_H
#define TOOLS_PPPOEIACTL_CONFIG_CARD_H

#include "tools/pppoeiactl/config/settings.h"

#include <array>
#include <bitset>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace config {

// Settings of one port and VLAN.
struct port_vlan {
  int32_t mode = -1;
  std::string circuit_id_format;
  std::string remote_id_format;

  bool operator==(const port_vlan&) const = default;
};

struct port {
  std::array<value, port_values> values;
  std::map<uint16_t, port_vlan> vlans;
  bool inherits = false;  // its description shows as its parent's, which an empty one does
  bool doubtful = false;  // was being replaced when somebody was stopped: what it is, is not to be trusted

  port();  // as one that was added without anything
};

struct bridge {
  std::array<value, bridge_values> values;
  std::bitset<4096> enabled;
  std::map<uint16_t, std::string> named;
  std::map<uint32_t, port> ports;
  value slot_trust;  // of ports that are added later; of a file only, where it says so
  value most_pdu;    // that its device allows, and a new bridge has; of the agent's bridges, where it is known

  bridge();
};

// Bridges in the order of their numbers: br2 before br10.
struct by_number {
  bool operator()(const std::string& a, const std::string& b) const
  {
    return std::pair(a.size(), a) < std::pair(b.size(), b);
  }
};

struct card {
  bool initialised = false;
  std::array<value, node_values> values;
  std::map<std::string, bridge, by_number> bridges;

  card();
};

// "panel=A,onu=3": the named parts of a record that differ from nothing, as "port add" and "port name update" take
// them.
std::string location_text(const port& port);

// "port 5 of br0".
std::string port_text(const std::string& bridge, uint32_t id);

// The record of "port add" that makes such a port.
std::string birth_record(const port& port);

// What "port add" and "port name update" make of their arranged inputs. `notes` get what is taken otherwise than it is
// written.
port port_born(const words& inputs, words& notes);
void port_renamed(port& port, const words& inputs, words& notes);

// What is left of a text that the agent cuts.
std::string cut(const std::string& text, size_t most, const char* what, words& notes);

// Parents before their children; ids ascend among equals. A ring of parents is taken as it comes.
std::vector<uint32_t> parents_first(const std::map<uint32_t, port>& ports);

}  // namespace config

#endif
