#include "tools/pppoeiactl/saved_port.h"

#include "tools/pppoeiactl/discovery.h"
#include "tools/pppoeiactl/line.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr setting_pair port_settings[] = {
    {"pppoeia_port_state_set", "pppoeia_port_state_get"},
    {"pppoeia_port_trust_set", "pppoeia_port_trust_get"},
    {"pppoeia_port_remote_id_set", "pppoeia_port_remote_id_get"},
    {"pppoeia_port_vsa_circuit_id_mode_set", "pppoeia_port_vsa_circuit_id_mode_get"},
    {"pppoeia_port_pvc_set", "pppoeia_port_pvc_get", true},
};

// What has a macro. Empty where it has no value.
struct port_values {
  std::string name, type, description, panel, onu, gem, pvc, cpe_serial, cpe_mac;
};

constexpr struct {
  const char* macro;
  std::string port_values::*value;
} macros[] = {
    {"$INTF", &port_values::name},
    {"$INTF_TYPE", &port_values::type},
    {"$INTF_DSCR", &port_values::description},
    {"$PANEL", &port_values::panel},
    {"$ONU", &port_values::onu},
    {"$VGEM", &port_values::gem},
    {"$PVC_INTF", &port_values::pvc},
    {"$CPE_SERIAL", &port_values::cpe_serial},
    {"$CPE_MAC", &port_values::cpe_mac},
};

bool is_option(const std::string& word)
{
  return word.starts_with("--");
}

constexpr uint32_t no_vlan = 4095;
constexpr std::string_view no_mac = "00:00:00:00:00:00";

port_values values_try(format_trial& trial, uint32_t port)
{
  words parts;
  for (const auto& row : macros)
    parts.push_back(row.macro);
  trial.line_set(port, no_vlan, no_vlan);
  const words results = trial.expand(parts);
  port_values values;
  for (size_t i = 0; i < results.size(); ++i)
    values.*macros[i].value = results[i];
  return values;
}

uint32_t parent_of(const context& context, const words& object)
{
  const api::operation& operation = row("pppoeia_port_parent_get");
  const agent_client::answer answer = context.demand(operation, object);
  return static_cast<uint32_t>(agent_client::number_of(operation.arguments().back(), answer.buffers.back()));
}

const reported_port* reported(const save_source& from, uint32_t port)
{
  const auto at = from.report.ports.find(port);
  return at == from.report.ports.end() ? nullptr : &at->second;
}

port_values values_of(const save_source& from, uint32_t port, uint32_t parent)
{
  port_values values;
  if (from.trial) {
    values = values_try(*from.trial, port);
    // An empty description shows the parent's.
    if (parent != 0 && !values.description.empty() && values_try(*from.trial, parent).description == values.description)
      values.description.clear();
    return values;
  }
  if (const reported_port* known = reported(from, port)) {
    values.name = known->name;
    values.cpe_serial = known->cpe_serial;
    values.cpe_mac = known->cpe_mac;
  }
  return values;
}

std::string location_of(const port_values& values)
{
  std::string list;
  const auto add = [&](const char* key, const std::string& value) {
    if (!value.empty() && value != "0")
      list += (list.empty() ? "" : ",") + std::string(key) + "=" + agent_client::record_value(value);
  };
  add("panel", values.panel);
  add("onu", values.onu);
  add("gem", values.gem);
  add("pvc", values.pvc);
  return list;
}

// Options stand behind the arguments, unless one of these looks like an option.
std::string add_line(const save_source& from, uint32_t port, uint32_t parent, const port_values& values)
{
  const std::string id = std::to_string(port);
  const reported_port* known = reported(from, port);
  const words arguments{from.bridge, id, known ? known->device : "port" + id, values.name};
  std::string options;
  const auto option = [&](const char* name, const std::string& value) {
    if (!value.empty())
      options += std::string(" ") + name + " " + word_write(value);
  };
  option("--type", values.type);
  option("--parent", parent == 0 ? "" : std::to_string(parent));
  option("--location", location_of(values));
  const std::string command = "port add";
  const bool options_first = std::ranges::any_of(arguments, is_option);
  const std::string line =
      options_first ? command_line(command + options, arguments) : command_line(command, arguments) + options;
  return line + (known ? "\n" : "  # device name not known\n");
}

std::string text_line(std::string_view command, const words& object, const std::string& value)
{
  if (value.empty())
    return {};
  words arguments = object;
  arguments.push_back(value);
  return command_line(command, arguments) + "\n";
}

std::string entry_lines(const save_source& from, uint32_t port, const pppoeia_port_vlan_entry& entry)
{
  const words object{from.bridge, std::to_string(port), std::to_string(entry.vlan_id)};
  const std::string cid(entry.cid_format, strnlen(entry.cid_format, sizeof entry.cid_format));
  const std::string rid(entry.rid_format, strnlen(entry.rid_format, sizeof entry.rid_format));
  std::string lines;
  if (entry.cid_mode != -1) {
    const api::argument mode{api::kind::u32, "mode", 4, api::values::cid_mode};
    lines += text_line("port-vlan circuit-id-mode set", object,
                       agent_client::number_word(mode, static_cast<uint32_t>(entry.cid_mode)));
  }
  lines += text_line("port-vlan circuit-id-format set", object, cid);
  lines += text_line("port-vlan remote-id-format set", object, rid);
  return lines.empty() ? command_line("port-vlan add", object) + "\n" : lines;
}

}  // namespace

std::string command_line(std::string_view command, const words& arguments)
{
  std::string line(command);
  if (std::ranges::any_of(arguments, is_option))
    line += " --";
  for (const std::string& word : arguments)
    line += " " + word_write(word);
  return line;
}

std::string setting_line(const context& context, const setting_pair& pair, const words& object)
{
  const api::operation& getter = *api::find_operation(pair.getter);
  const api::operation& setter = *api::find_operation(pair.setter);
  const agent_client::answer answer = context.ask(getter, object);
  if (answer.result == 1)  // not of this kind of port
    return {};
  if (answer.result != 0)
    context.refuse(getter, object, answer.result);
  words arguments = object;
  bool unset = true;
  for (size_t i = object.size(); i < getter.arguments().size(); ++i) {
    const api::argument& told = getter.arguments()[i];
    const api::argument& taken = setter.arguments()[i];
    if (told.what == api::kind::out_text) {
      arguments.push_back(agent_client::text_of(answer.buffers[i]));
      unset = unset && arguments.back().empty();
      continue;
    }
    int64_t number = agent_client::number_of(told, answer.buffers[i]);
    unset = unset && pair.may_be_unset && number == UINT32_MAX;
    if (taken.what == api::kind::i32)
      number = static_cast<int32_t>(number);
    arguments.push_back(agent_client::number_word(taken, number));
  }
  return unset ? std::string() : command_line(setter.command, arguments) + "\n";
}

std::string saved_port(const save_source& from, uint32_t port)
{
  const words object{from.bridge, std::to_string(port)};
  const uint32_t parent = parent_of(from.with, object);
  const port_values values = values_of(from, port, parent);
  std::string lines = add_line(from, port, parent, values);
  for (const setting_pair& pair : port_settings)
    lines += setting_line(from.with, pair, object);
  lines += text_line("port description set", object, values.description);
  lines += text_line("port cpe-serial set", object, values.cpe_serial);
  lines += text_line("port cpe-mac set", object, values.cpe_mac == no_mac ? "" : values.cpe_mac);
  for (const pppoeia_port_vlan_entry& entry : port_vlans_of(from.with, from.bridge, port))
    lines += entry_lines(from, port, entry);
  return lines;
}
