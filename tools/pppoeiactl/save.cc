#include "tools/pppoeiactl/save.h"

#include "tools/pppoeiactl/discovery.h"
#include "tools/pppoeiactl/report.h"
#include "tools/pppoeiactl/saved_port.h"

#include <algorithm>
#include <cstdio>
#include <optional>

namespace {

constexpr setting_pair bridge_settings[] = {
    {"pppoeia_bridge_state_set", "pppoeia_bridge_state_get"},
    {"pppoeia_bridge_max_pdu_set", "pppoeia_bridge_max_pdu_get"},
    {"pppoeia_bridge_vsa_mode_set", "pppoeia_bridge_vsa_mode_get"},
    {"pppoeia_bridge_vsa_insert_circuit_id_set", "pppoeia_bridge_vsa_insert_circuit_id_get"},
    {"pppoeia_bridge_vsa_insert_remote_id_set", "pppoeia_bridge_vsa_insert_remote_id_get"},
    {"pppoeia_bridge_vsa_circuit_id_cvlan_set", "pppoeia_bridge_vsa_circuit_id_cvlan_get"},
    {"pppoeia_bridge_chassis_id_set", "pppoeia_bridge_chassis_id_get"},
    {"pppoeia_bridge_shelf_id_set", "pppoeia_bridge_shelf_id_get"},
    {"pppoeia_circuit_id_format_set", "pppoeia_circuit_id_format_get"},
    {"pppoeia_remote_id_format_set", "pppoeia_remote_id_format_get"},
};

constexpr setting_pair node_settings[] = {
    {"pppoeia_debug_admin_state_set", "pppoeia_debug_admin_state_get"},
    {"pppoeia_log_level_set", "pppoeia_log_level_get"},
};

// In the order of the fields' macros.
constexpr const char* text_commands[] = {"bridge sysname set", "bridge location set", "bridge contact set"};
const words text_macros = {"$SYSNAME", "$LOCATION", "$CONTACT"};

constexpr char head[] = R"(# Written by pppoeiactl save; pppoeiactl -batch reads it, on an agent that has just started.
# Counters and the format test data are not kept. What else no operation tells stands in comments.
init
)";

constexpr char unknown_always[] = R"(#   the number of port slots: the fewest that hold the ports stand here
#   of each port the kind, the panel kind, location numbers that its type does not use, and, unless it has VLAN
#   entries or a CPE serial number, the device name: one made of its number stands here
#   settings of port slots without a port
)";
constexpr char unknown_without_trial[] = R"(#   system name, location and contact (no trial was wanted)
#   of each port type, location and description, and, unless it has VLAN entries or a CPE serial number, its name
#   and its CPE's MAC address
)";

std::string texts_lines(format_trial& trial, const std::string& bridge)
{
  std::string lines;
  const words values = trial.expand(text_macros);
  for (size_t i = 0; i < values.size(); ++i)
    if (!values[i].empty())
      lines += command_line(text_commands[i], {bridge, values[i]}) + "\n";
  return lines;
}

// The vendor text may be empty, and a new bridge's is not: it is written in any case.
std::string vendor_line(const context& context, const std::string& bridge)
{
  const agent_client::answer answer = context.demand(row("pppoeia_bridge_vendor_get"), {bridge});
  return command_line("bridge vendor set", {bridge, agent_client::text_of(answer.buffers.back())}) + "\n";
}

std::string vlan_lines(const context& context, const std::string& bridge)
{
  constexpr size_t all = 512;  // that the operation for all reaches
  const std::vector<uint16_t> enabled = vlans_of(context, bridge);
  const bool all_on = enabled.size() >= all && enabled[all - 1] == all - 1;
  std::string lines = command_line("bridge vlan set-all", {bridge, all_on ? "on" : "off"}) + "\n";
  for (const uint16_t vlan : enabled)
    if (!all_on || vlan >= all)
      lines += command_line("bridge vlan set", {bridge, std::to_string(vlan), "on"}) + "\n";
  return lines;
}

std::string named_vlan_lines(const bridge_report& report, const std::string& bridge)
{
  std::string lines;
  for (const auto& [vlan, name] : report.vlans) {
    lines += command_line("vlan add", {bridge, std::to_string(vlan)}) + "\n";
    if (!name.empty())
      lines += command_line("vlan name set", {bridge, std::to_string(vlan), name}) + "\n";
  }
  return lines;
}

std::string saved_bridge(const context& context, const std::string& bridge, bool with_trial)
{
  std::optional<format_trial> trial;
  if (with_trial)
    trial.emplace(context, bridge);
  const std::vector<uint32_t> ports = ports_of(context, bridge);
  const uint32_t slots = ports.empty() ? 1 : ports.back() + 1;
  std::string lines = "\n# Bridge " + printable(bridge) + ". Not known:\n" + unknown_always;
  if (!trial)
    lines += unknown_without_trial;
  lines += command_line("bridge add", {bridge, std::to_string(slots)}) + "\n";
  for (const setting_pair& pair : bridge_settings)
    lines += setting_line(context, pair, {bridge});
  lines += vendor_line(context, bridge);
  if (trial)
    lines += texts_lines(*trial, bridge);
  const bridge_report report = bridge_report_read(context, bridge);
  lines += vlan_lines(context, bridge) + named_vlan_lines(report, bridge);
  for (const uint32_t port : ports)
    lines += saved_port({context, bridge, report, trial ? &*trial : nullptr}, port);
  return lines;
}

}  // namespace

void save_run(const context& context, const given_words& given)
{
  const bool with_trial = !given.has("--no-trial");
  std::string file = head;
  for (const std::string& bridge : given.arguments.empty() ? bridges_of(context) : given.arguments)
    file += saved_bridge(context, bridge, with_trial);
  file += "\n";
  for (const setting_pair& pair : node_settings)
    file += setting_line(context, pair, {});
  if (!context.json) {
    std::fwrite(file.data(), 1, file.size(), stdout);
    return;
  }
  report report;
  report.add_text("batch", file);
  report.print(context);
}
