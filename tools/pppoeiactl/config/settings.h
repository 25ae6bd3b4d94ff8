// Everything that can be set on the agent, a row each: how it is written, how it is read, what it is on a new object.
// All but what is given with a new object comes from the rows of the agent's own table (pppoeia/api/settings.h).
// Reading a file, reading the agent, comparing and writing all go by these rows.
//
// A value stands as a person writes it: a number by its word where it has one, a text by its bytes, two numbers (of a
// PVC) with a blank between them. Nothing stands for a value that is not known.
#ifndef TOOLS_PPPOEIACTL_CONFIG_SETTINGS_H
#define TOOLS_PPPOEIACTL_CONFIG_SETTINGS_H

#include "pppoeia/api/settings.h"
#include "tools/pppoeiactl/agent/context.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace config {

using value = std::optional<std::string>;

// How a value is changed.
enum class change : uint8_t {
  by_setter,  // the row's own operation
  by_name,    // "port name update", which takes several at once
  by_birth,   // only when the object is added
};

struct setting {
  std::string key;      // in records of "port add", and for people
  std::string initial;  // on a new object
  change how = change::by_setter;
  std::string_view setter{};  // operations; the values are its arguments behind those that name the object
  std::string_view getter{};  // empty: no operation tells
  std::string_view macro{};   // whose expansion on the port is the value, where no operation tells
  size_t most = 0;            // characters of that
};

// The agent's settings, in its table's order, behind what is given with a new object.
#define CONFIG_NODE(name, ...) node_##name,
#define CONFIG_BRIDGE(name, ...) bridge_##name,
#define CONFIG_PORT(name, ...) port_##name,
enum node_value : size_t { PPPOEIA_PROCESS_SETTINGS(CONFIG_NODE) node_values };

enum bridge_value : size_t {
  bridge_slots,
  PPPOEIA_BRIDGE_SETTINGS(CONFIG_BRIDGE, CONFIG_BRIDGE, CONFIG_BRIDGE) bridge_values
};

// In the order in which a port gets them: what a frame's fate depends on first.
enum port_value : size_t {
  port_device,
  port_name,
  port_type,
  port_kind,
  port_panel_kind,
  port_panel,
  port_onu,
  port_gem,
  port_pvc_intf,
  port_reserved,
  PPPOEIA_PORT_SETTINGS(CONFIG_PORT, CONFIG_PORT, CONFIG_PORT) port_values
};
#undef CONFIG_NODE
#undef CONFIG_BRIDGE
#undef CONFIG_PORT

// How the Circuit ID's mode is written, of a port and of a port's VLAN.
inline constexpr api::argument mode_words{api::kind::u32, "mode", sizeof(uint32_t), api::values::cid_mode};

std::span<const setting, node_values> node_settings();
std::span<const setting, bridge_values> bridge_settings();
std::span<const setting, port_values> port_settings();

// The same number or text however it was written: for the arguments of `setter` behind the first `skip`. The words
// must be values of their kinds.
std::string canonical(const api::operation& setter, size_t skip, std::span<const std::string> words);

// What an answer of `getter` tells, as `setter` takes it.
std::string told_value(const setting& setting, const agent_client::answer& answer, size_t skip);

// A value as words of its setter's arguments.
words value_words(const setting& setting, size_t skip, const std::string& text);

}  // namespace config

#endif
