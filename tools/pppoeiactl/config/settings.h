// Everything that can be set on the agent, a row each: how it is written, how it is read, what it is on a new object.
// Reading a file, reading the agent, comparing and writing all go by these rows.
//
// A value stands as a person writes it: a number by its word where it has one, a text by its bytes, two numbers (of a
// PVC) with a blank between them. Nothing stands for a value that is not known.
#ifndef TOOLS_PPPOEIACTL_CONFIG_SETTINGS_H
#define TOOLS_PPPOEIACTL_CONFIG_SETTINGS_H

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
  std::string_view key;      // in records of "port add", and for people
  std::string_view initial;  // on a new object
  change how = change::by_setter;
  std::string_view setter;  // operations; the values are its arguments behind those that name the object
  std::string_view getter;  // empty: no operation tells
  std::string_view macro;   // whose expansion on the port is the value, where no operation tells
  size_t most = 0;          // characters of that
};

enum node_value : size_t { node_debug_state, node_log_level, node_values };

enum bridge_value : size_t {
  bridge_slots,
  bridge_max_pdu,
  bridge_state,
  bridge_vendor,
  bridge_shelf_id,
  bridge_chassis_id,
  bridge_sysname,
  bridge_location,
  bridge_contact,
  bridge_vsa_mode,
  bridge_insert_circuit_id,
  bridge_insert_remote_id,
  bridge_circuit_id_cvlan,
  bridge_circuit_id_format,
  bridge_remote_id_format,
  bridge_values
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
  port_parent,
  port_trust,
  port_state,
  port_remote_id,
  port_circuit_id_mode,
  port_pvc,
  port_description,
  port_cpe_serial,
  port_cpe_mac,
  port_values
};

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
