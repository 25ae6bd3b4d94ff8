#include "tools/pppoeiactl/config/card_builder.h"

#include "tools/pppoeiactl/words/line.h"

#include <algorithm>

namespace config {
namespace {

// Most characters that a text's field keeps; the agent cuts what is longer, or refuses it.
struct text_limit {
  std::string_view setter;
  size_t most;
  bool refused;
};
constexpr text_limit text_limits[] = {
    {"pppoeia_bridge_vendor_set", 19, true},      {"pppoeia_bridge_shelf_id_set", 39, true},
    {"pppoeia_bridge_contact_set", 64, true},     {"pppoeia_bridge_location_set", 64, true},
    {"pppoeia_bridge_sysname_set", 64, true},     {"pppoeia_circuit_id_format_set", 128, true},
    {"pppoeia_remote_id_format_set", 128, true},  {"pppoeia_port_remote_id_set", 63, true},
    {"pppoeia_bridge_intf_descr_set", 64, false}, {"pppoeia_bridge_cpe_serial_set", 12, false},
};

std::string list_of(const auto& keyed)
{
  std::string list;
  for (const auto& [name, rest] : keyed)
    list += (list.empty() ? "" : ", ") + std::string(name);
  return list.empty() ? "none" : list;
}

// A number that has words, but none for this one.
void note_meaningless(const api::operation& operation, const words& inputs, words& notes)
{
  size_t input = 0;
  for (const api::argument& argument : operation.arguments()) {
    if (api::is_output(argument.what))
      continue;
    const std::string& text = inputs[input++];
    const auto names = api::names_of(argument.words);
    const std::optional<int64_t> value = names.empty() ? std::nullopt : agent_client::number_parse(argument, text);
    if (!value || argument.words == api::values::on_off)
      continue;
    const bool minus_one = *value == UINT32_MAX;
    if (std::ranges::none_of(names, [&](const auto& n) { return n.value == *value || (n.value == -1 && minus_one); }))
      notes.push_back(std::string(argument.name) + " " + text + " has no meaning of its own");
  }
}

bool is_uplink_kind(const port& port)
{
  const std::string kind = port.values[port_kind].value_or("0");
  return kind == "1" || kind == "5";
}

}  // namespace

struct card_builder::special {
  std::string_view operation;
  void (card_builder::*run)(const words& inputs, words& notes);
};

const card_builder::special card_builder::specials[] = {
    {"pppoeia_init", &card_builder::init},
    {"pppoeia_fini", &card_builder::fini},
    {"pppoeia_bridge_debug_set", &card_builder::bridge_debug},
    {"pppoeia_bridge_add", &card_builder::bridge_add},
    {"pppoeia_bridge_del", &card_builder::bridge_del},
    {"pppoeia_apply_default_settings", &card_builder::bridge_defaults},
    {"pppoeia_bridge_vlan_set", &card_builder::vlan_enable},
    {"pppoeia_bridge_vlan_set_all", &card_builder::vlan_enable_all},
    {"pppoeia_vlan_add", &card_builder::vlan_add},
    {"pppoeia_vlan_del", &card_builder::vlan_del},
    {"pppoeia_vlan_name_set", &card_builder::vlan_name},
    {"clear_vlan", &card_builder::vlan_clear},
    {"pppoeia_port_add", &card_builder::port_add},
    {"pppoeia_port_del", &card_builder::port_del},
    {"pppoeia_port_name_update", &card_builder::port_rename},
    {"pppoeia_port_state_set_all", &card_builder::state_all},
    {"pppoeia_port_trust_set_all", &card_builder::trust_all},
    {"pppoeia_port_vlan_add", &card_builder::entry_add},
    {"pppoeia_port_vlan_del", &card_builder::entry_del},
    {"pppoeia_circuit_id_mode_port_vlan_set", &card_builder::entry_mode},
    {"pppoeia_circuit_id_format_port_vlan_set", &card_builder::entry_circuit_id},
    {"pppoeia_remote_id_format_port_vlan_set", &card_builder::entry_remote_id},
    {"clear_port_vlan", &card_builder::entries_clear},
    {"clear_port_vlan_all", &card_builder::entries_clear_all},
};

bool card_builder::run(const api::operation& operation, const words& inputs, words& notes)
{
  named_ = {};
  note_meaningless(operation, inputs, notes);
  for (const special& one : specials)
    if (one.operation == operation.name)
      return (this->*one.run)(inputs, notes), true;
  return set_by_row(operation, inputs, notes);
}

template <size_t Count>
void card_builder::value_set(std::array<value, Count>& values, size_t index, const setting& row, const words& inputs,
                             size_t skip, words& notes)
{
  std::string text = canonical(*api::find_operation(row.setter), skip, inputs);
  for (const text_limit& limit : text_limits)
    if (limit.setter == row.setter && text.size() > limit.most) {
      if (limit.refused)
        refuse(std::string(row.key) + ": '" + printable(text) + "' has " + std::to_string(text.size()) +
               " characters, at most " + std::to_string(limit.most) + " are taken");
      text = cut(text, limit.most, std::string(row.key).c_str(), notes);
    }
  values[index] = text;
}

bool card_builder::set_by_row(const api::operation& operation, const words& inputs, words& notes)
{
  const auto find = [&](const auto& rows) {
    size_t index = 0;
    while (index < rows.size() && (rows[index].how != change::by_setter || rows[index].setter != operation.name))
      ++index;
    return index;
  };
  if (const size_t i = find(node_settings()); i < node_values) {
    value_set(card_.values, i, node_settings()[i], inputs, 0, notes);
    return true;
  }
  if (const size_t i = find(bridge_settings()); i < bridge_values) {
    bridge& owner = bridge_of(inputs);
    value_set(owner.values, i, bridge_settings()[i], inputs, 1, notes);
    if (i == bridge_state)
      owner.values[i] = is_on(inputs[1]) ? "on" : "off";
    return true;
  }
  if (const size_t i = find(port_settings()); i < port_values) {
    port& owner = port_of(inputs);
    if (i == port_pvc && owner.values[port_type] != "atm")
      refuse(port_text(inputs[0], named_.port) + ": a PVC is for ports of type atm, this one's is '" +
             printable(*owner.values[port_type]) + "'");
    value_set(owner.values, i, port_settings()[i], inputs, 2, notes);
    return true;
  }
  return false;
}

void card_builder::refuse(const std::string& text)
{
  throw command_error(exit_refused, text);
}

uint32_t card_builder::number(const std::string& text)
{
  return static_cast<uint32_t>(agent_client::number_parse({api::kind::u32, "", 4, {}}, text).value_or(0));
}

bool card_builder::is_on(const std::string& text)
{
  return text != "off" && number(text == "on" ? "1" : text) != 0;
}

uint16_t card_builder::vlan_of(const words& inputs, size_t at, words& notes)
{
  const auto vlan = static_cast<uint16_t>(number(inputs[at]));
  if (vlan > 4095)
    notes.push_back("VLAN " + inputs[at] + " is above 4095: no frame has it");
  return vlan;
}

void card_builder::must_be_initialised() const
{
  if (!card_.initialised)
    refuse("the agent is not initialised here: init comes first");
}

bridge& card_builder::bridge_of(const words& inputs)
{
  must_be_initialised();
  named_.bridge = inputs[0];
  const auto at = card_.bridges.find(inputs[0]);
  if (at == card_.bridges.end())
    refuse("bridge " + printable(inputs[0]) + ": no such bridge (bridges: " + list_of(card_.bridges) + ")");
  return at->second;
}

port& card_builder::port_of(const words& inputs)
{
  bridge& owner = bridge_of(inputs);
  named_.port = number(inputs[1]);
  const auto at = owner.ports.find(named_.port);
  if (at != owner.ports.end())
    return at->second;
  const uint32_t slots = number(*owner.values[bridge_slots]);
  if (named_.port == 0 || named_.port >= slots)
    refuse("port " + inputs[1] + ": " + inputs[0] + " has ports 1 to " + std::to_string(slots - 1));
  refuse("port " + inputs[1] + ": not added to " + inputs[0] + " before this line");
}

void card_builder::init(const words&, words& notes)
{
  if (card_.initialised)
    notes.push_back("initialised before: in a batch, the bridges above would stay behind this file's back");
  const auto values = card_.values;
  card_ = card{};
  card_.values = values;  // of the process
  card_.initialised = true;
  left_.clear();
}

void card_builder::fini(const words&, words&)
{
  must_be_initialised();
  const auto values = card_.values;
  card_ = card{};
  card_.values = values;
}

void card_builder::bridge_debug(const words& inputs, words& notes)
{
  card_.values[node_log_level] = is_on(inputs[1]) ? "debug" : "none";
  notes.push_back("bridge debug sets the log level of the whole process");
}

void card_builder::bridge_add(const words& inputs, words&)
{
  must_be_initialised();
  named_.bridge = inputs[0];
  constexpr size_t name_max = 10;
  if (inputs[0].empty() || inputs[0].size() > name_max)
    refuse("bridge '" + printable(inputs[0]) + "': a name has 1 to 10 characters");
  if (card_.bridges.contains(inputs[0]))
    refuse("bridge " + printable(inputs[0]) + ": added before");
  const uint32_t slots = number(inputs[1]);
  constexpr uint32_t slots_max = 65536;
  if (slots == 0 || slots > slots_max)
    refuse("bridge " + printable(inputs[0]) + ": " + inputs[1] + " slots; 1 to " + std::to_string(slots_max) +
           " are possible, one more than the highest port");
  card_.bridges[inputs[0]].values[bridge_slots] = std::to_string(slots);
}

void card_builder::bridge_del(const words& inputs, words&)
{
  bridge_of(inputs);
  card_.bridges.erase(inputs[0]);
  left_.erase(inputs[0]);
}

void card_builder::bridge_defaults(const words& inputs, words&)
{
  bridge& owner = bridge_of(inputs);
  const bridge fresh;
  for (const size_t i : {bridge_chassis_id, bridge_vsa_mode, bridge_insert_circuit_id, bridge_insert_remote_id,
                         bridge_circuit_id_cvlan, bridge_circuit_id_format})
    owner.values[i] = fresh.values[i];
  owner.values[bridge_state] = "off";
  owner.values[bridge_remote_id_format] = "$PORT_REM_ID";
  for (size_t vlan = 0; vlan < 512; ++vlan)
    owner.enabled.reset(vlan);
  owner.named.clear();
  card_.values[node_log_level] = "error";
  bool uplink = false;
  for (auto& [id, port] : owner.ports) {
    uplink = uplink || is_uplink_kind(port);
    port.values[port_state] = uplink ? "any" : "disabled";
    port.values[port_trust] = uplink ? "trusted" : "untrusted";
    port.values[port_remote_id] = "";
    port.values[port_circuit_id_mode] = "ethernet";
    port.vlans.clear();
  }
}

}  // namespace config
