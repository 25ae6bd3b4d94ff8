#include "tools/pppoeiactl/config/check.h"

#include "tools/pppoeiactl/config/collisions.h"
#include "tools/pppoeiactl/format/format_reading.h"

#include <algorithm>
#include <cstdio>

namespace config {
namespace {

// Looks at one card, object by object.
class doubter {
public:
  explicit doubter(const card_file& file) : file_(file) {}

  std::vector<finding> look()
  {
    for (const auto& [name, bridge] : file_.wanted.bridges)
      bridge_look(name, bridge);
    std::ranges::stable_sort(found_, {}, &finding::line);
    return std::move(found_);
  }

private:
  void say(size_t line, const std::string& text) { found_.push_back({line, false, text}); }

  void bridge_look(const std::string& name, const bridge& bridge)
  {
    line_ = file_.bridge_lines.at(name);
    format_look("format circuit-id of " + name, *bridge.values[bridge_circuit_id_format]);
    format_look("format remote-id of " + name, *bridge.values[bridge_remote_id_format]);
    if (bridge.ports.empty())
      return;
    if (bridge.values[bridge_state] == "off")
      say(line_, "bridge " + name + " is off: its frames pass as they are");
    if (bridge.enabled.none())
      say(line_, "bridge " + name + " has no VLAN enabled: frames of its lines pass as they are (bridge vlan set)");
    const auto serves = [](const auto& one) {
      return one.second.values[port_state] == "network" || one.second.values[port_state] == "any";
    };
    if (std::ranges::none_of(bridge.ports, serves))
      say(line_, "bridge " + name + " has no port on the network's side: no server is let in");
    for (const auto& [id, port] : bridge.ports)
      port_look(name, id, bridge, port);
    for (const collision& shared : collisions_of(bridge))
      collision_look(name, shared);
  }

  void port_look(const std::string& bridge, uint32_t id, const config::bridge& owner, const port& port)
  {
    line_ = file_.port_lines.at({bridge, id});
    const std::string object = port_text(bridge, id);
    const std::string& state = *port.values[port_state];
    const std::string& trust = *port.values[port_trust];
    if (state == "disabled")
      say(line_, object + " is disabled: it lets everything pass as it is (port state set)");
    if (state == "subscriber" && trust != "untrusted")
      say(line_, object + " is a subscriber's and trusted: vendor tags of the subscriber are taken for the line's");
    if (state == "network" && trust == "untrusted")
      say(line_, object + " is on the network's side and untrusted: frames of servers with a vendor tag are dropped");
    if (const std::string& parent = *port.values[port_parent];
        parent != "0" && !owner.ports.contains(static_cast<uint32_t>(std::stoul(parent))))
      say(line_, object + " lies on port " + parent + ", which " + bridge + " does not have");
    for (const auto& [vlan, entry] : port.vlans)
      entry_look(object + ", VLAN " + std::to_string(vlan), vlan, owner, entry);
  }

  void collision_look(const std::string& bridge, const collision& shared)
  {
    std::string ports;
    for (const uint32_t id : shared.ports)
      ports += (ports.empty() ? "" : ", ") + std::to_string(id);
    say(file_.port_lines.at({bridge, shared.ports.back()}),
        "ports " + ports + " of " + bridge + " share the " + shared.what);
  }

  void entry_look(const std::string& object, uint16_t vlan, const bridge& owner, const port_vlan& entry)
  {
    if (vlan < owner.enabled.size() && !owner.enabled.test(vlan))
      say(line_, object + " has an entry, and the VLAN is not enabled on the bridge");
    if (entry.mode == -1)
      say(line_, object + " has an entry without a mode: its frames get no Circuit ID");
    format_look("format circuit-id of " + object, entry.circuit_id_format);
    format_look("format remote-id of " + object, entry.remote_id_format);
  }

  // A macro that the language does not know stays as it is written, as does one whose options do not fit.
  void format_look(const std::string& what, const std::string& format)
  {
    const format_reading reading = format_read(format);
    for (const format_piece& piece : reading.pieces) {
      if (piece.is_macro && !piece.stays.empty())
        say(line_, what + ": '" + printable(piece.text) + "' stays as it is: " + piece.stays);
      else if (!piece.is_macro && piece.text.find('$') != std::string::npos)
        say(line_, what + ": '" + printable(piece.text) + "' holds $ and is no macro");
    }
  }

  const card_file& file_;
  std::vector<finding> found_;
  size_t line_ = 0;
};

void print(const context& context, const std::string& name, const std::vector<finding>& findings)
{
  if (!context.json) {
    for (const finding& found : findings)
      std::printf("%s\n", finding_text(name, found).c_str());
    return;
  }
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const finding& found : findings)
    list.push_back(
        {{"line", found.line}, {"severity", found.error ? "error" : "warning"}, {"text", printable(found.text)}});
  std::printf("%s\n", nlohmann::ordered_json{{"version", json_version}, {"findings", list}}.dump().c_str());
}

}  // namespace

std::vector<finding> doubts_of(const card_file& file)
{
  return doubter(file).look();
}

void check_run(const context& context, const given_words& given)
{
  const std::string& name = given.arguments[0];
  card_file file = card_file_read(name);
  std::vector<finding> findings = file.findings;
  if (file.usable() && !file.wanted.initialised)
    findings.push_back({0, true, "makes no card without 'init'"});
  for (const finding& doubt : doubts_of(file))
    findings.push_back(doubt);
  print(context, name, findings);
  const auto errors = std::ranges::count_if(findings, &finding::error);
  const auto warnings = static_cast<std::ptrdiff_t>(findings.size()) - errors;
  if (!findings.empty())
    throw command_error(errors > 0 ? exit_usage : exit_findings, "check " + name + ": " + std::to_string(errors) +
                                                                     " errors, " + std::to_string(warnings) +
                                                                     " warnings");
}

}  // namespace config
