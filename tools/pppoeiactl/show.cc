#include "tools/pppoeiactl/show.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

namespace {

constexpr std::string_view bridge_getters[] = {
    "pppoeia_bridge_state_get",
    "pppoeia_bridge_max_pdu_get",
    "pppoeia_bridge_vendor_get",
    "pppoeia_bridge_shelf_id_get",
    "pppoeia_bridge_chassis_id_get",
    "pppoeia_bridge_vsa_mode_get",
    "pppoeia_bridge_vsa_insert_circuit_id_get",
    "pppoeia_bridge_vsa_insert_remote_id_get",
    "pppoeia_bridge_vsa_circuit_id_cvlan_get",
    "pppoeia_circuit_id_format_get",
    "pppoeia_remote_id_format_get",
    "pppoeia_bridge_stats_get",
};

constexpr std::string_view port_getters[] = {
    "pppoeia_port_state_get",      "pppoeia_port_trust_get",
    "pppoeia_port_remote_id_get",  "pppoeia_port_vsa_circuit_id_mode_get",
    "pppoeia_port_parent_get",     "pppoeia_port_pvc_get",
    "pppoeia_port_circuit_id_get", "pppoeia_port_stats_get",
};

constexpr bool all_known(std::span<const std::string_view> names)
{
  for (const std::string_view name : names)
    if (api::operation_id(name) == api::operations.size())
      return false;
  return true;
}
static_assert(all_known(bridge_getters) && all_known(port_getters));

uint32_t port_parse(const std::string& text)
{
  uint32_t id = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
  if (text.empty() || error != std::errc{} || end != text.data() + text.size())
    throw command_error(exit_usage, "no port id: '" + text + "'");
  return id;
}

// A report for each, under each other or as one JSON array.
void print_all(const context& context, const std::vector<report>& reports)
{
  if (context.json) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const report& report : reports)
      list.push_back(report.json());
    std::printf("%s\n", list.dump().c_str());
    return;
  }
  for (size_t i = 0; i < reports.size(); ++i) {
    if (i > 0)
      std::printf("\n");
    reports[i].print(context);
  }
}

// The formats share an argument name; in a gathering each needs its own.
std::string show_key(const api::operation& operation, std::string_view name)
{
  if (name != "format" && name != "insert")
    return {};
  const std::string command(operation.command);
  const size_t begin = command.find(' ') + 1;
  return command.substr(begin, command.rfind(' ') - begin) + (name == "format" ? "-format" : "");
}

void gather(const context& context, report& into, std::span<const std::string_view> getters, const words& inputs)
{
  for (const std::string_view name : getters) {
    const api::operation& operation = *api::find_operation(name);
    const agent_client::answer answer = context.ask(operation, inputs);
    // 1 says "not of this kind of port": nothing to show.
    if (answer.result == 1)
      continue;
    if (answer.result != 0)
      throw command_error(exit_refused, agent_client::error_text(operation.name, answer.result));
    into.add(operation, answer, [&](std::string_view key) { return show_key(operation, key); });
  }
}

}  // namespace

report show_bridge(const context& context, const std::string& bridge)
{
  report gathered;
  gathered.add_text("bridge", bridge);
  gather(context, gathered, bridge_getters, {bridge});
  return gathered;
}

report show_port(const context& context, const std::string& bridge, uint32_t port)
{
  report gathered;
  gathered.add_number("port", port, std::to_string(port));
  gather(context, gathered, port_getters, {bridge, std::to_string(port)});
  return gathered;
}

std::vector<uint32_t> ports_of(const context& context, const std::string& bridge, uint32_t most)
{
  std::vector<uint32_t> ids;
  for (uint32_t id = 1; id <= most; ++id) {
    const agent_client::answer answer = context.ask(row("pppoeia_port_state_get"), {bridge, std::to_string(id)});
    if (answer.result == 0)
      ids.push_back(id);
    else if (answer.result != -ENODEV)
      throw command_error(exit_refused, agent_client::error_text("pppoeia_port_state_get", answer.result));
  }
  return ids;
}

std::vector<report> show_port_vlans(const context& context, const std::string& bridge, uint32_t port)
{
  std::vector<report> entries;
  const std::string id = std::to_string(port);
  const api::operation* operation = &row("pppoeia_port_vlan_get_first");
  agent_client::answer answer = context.ask(*operation, {bridge, id});
  while (answer.result == 0) {
    report entry;
    entry.add(*operation, answer);
    uint16_t vlan = 0;
    std::memcpy(&vlan, answer.buffers.back().data(), sizeof vlan);
    entries.push_back(std::move(entry));
    operation = &row("pppoeia_port_vlan_get_next");
    answer = context.ask(*operation, {bridge, id, std::to_string(vlan)});
  }
  if (answer.result != -ENOENT)
    throw command_error(exit_refused, agent_client::error_text(operation->name, answer.result));
  return entries;
}

void show_run(const context& context, const words& line)
{
  const std::string what = line.empty() ? "" : line[0];
  if (what == "bridge" && line.size() == 2)
    return show_bridge(context, line[1]).print(context);
  if (what == "port" && line.size() == 3)
    return show_port(context, line[1], port_parse(line[2])).print(context);
  if (what == "port" && line.size() == 2) {
    std::vector<report> reports;
    for (const uint32_t id : ports_of(context, line[1]))
      reports.push_back(show_port(context, line[1], id));
    return print_all(context, reports);
  }
  if (what == "port-vlan" && line.size() == 3)
    return print_all(context, show_port_vlans(context, line[1], port_parse(line[2])));
  throw command_error(exit_usage, "usage: show bridge BRIDGE | show port BRIDGE [PORT] | show port-vlan BRIDGE PORT");
}
