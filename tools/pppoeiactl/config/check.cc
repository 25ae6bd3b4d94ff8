#include "tools/pppoeiactl/config/commands.h"

#include "tools/pppoeiactl/agent/report.h"
#include "tools/pppoeiactl/config/card_file.h"
#include "tools/pppoeiactl/format/format_reading.h"
#include "tools/pppoeiactl/words/line.h"

#include <algorithm>
#include <cstdio>
#include <set>

namespace config {
namespace {

// Lines of one bridge that would get the same identifier
// -------------------------------------------------------------------------------------------------------------------

// A port in one VLAN, or in any that nobody has an entry for.
struct line {
  const bridge& owner;
  uint32_t id;
  const port& of;
  std::optional<uint16_t> vlan;

  const port_vlan* entry() const
  {
    const auto at = vlan ? of.vlans.find(*vlan) : of.vlans.end();
    return at == of.vlans.end() ? nullptr : &at->second;
  }
};

const port* parent_of(const line& line)
{
  const auto at = line.owner.ports.find(static_cast<uint32_t>(std::stoul(*line.of.values[port_parent])));
  return at == line.owner.ports.end() ? nullptr : &at->second;
}

std::string inherited(const line& line, port_value which)
{
  const std::string& own = *line.of.values[which];
  const port* parent = parent_of(line);
  return own.empty() && parent ? *parent->values[which] : own;
}

std::string pvc_number(const line& line, bool first)
{
  const std::string& pvc = *line.of.values[port_pvc];
  if (pvc == port_settings()[port_pvc].initial)
    return {};
  const size_t blank = pvc.find(' ');
  return first ? pvc.substr(0, blank) : pvc.substr(blank + 1);
}

// What differs from line to line; everything else as its name.
std::string macro_value(const line& line, const parsed_macro& macro)
{
  const std::string& type = *line.of.values[port_type];
  const auto number = [&](port_value which, bool is_there) {
    return is_there ? *line.of.values[which] : std::string();
  };
  switch (macro.type) {
  case PORT:
    return std::to_string(line.id);
  case PANEL:
    return number(port_panel, *line.of.values[port_panel_kind] < "2");
  case INTF_TYPE:
    return type;
  case PORT_REM_ID:
    return inherited(line, port_remote_id);
  case INTF_DSCR:
    return inherited(line, port_description);
  case INTF:
    return *line.of.values[port_name];
  case ONU:
    return number(port_onu, type == "onu" || type == "gem");
  case VGEM:
    return number(port_gem, type == "gem");
  case PVC_INTF:
    return number(port_pvc_intf, type == "atm");
  case VPI:
  case VCI:
    return pvc_number(line, macro.type == VPI);
  case CPE_SERIAL:
    return *line.of.values[port_cpe_serial];
  case CPE_MAC:
    return *line.of.values[port_cpe_mac];
  case AGENT_IPV4:  // of the port's interface
    return "<" + *line.of.values[port_device] + ">";
  case VLAN:
    return line.vlan ? std::to_string(*line.vlan) : "<VLAN>";
  default:
    return "<" + macro.text.substr(1) + ">";
  }
}

std::string expanded(const line& line, const std::string& format)
{
  std::string text;
  for (const format_piece& piece : format_read(format).pieces)
    text += piece.is_macro && piece.stays.empty() ? macro_value(line, piece.macro) : piece.text;
  return text;
}

std::string circuit_id(const line& line)
{
  const port_vlan* entry = line.entry();
  std::string mode = *line.of.values[port_circuit_id_mode];
  if (entry)
    mode = agent_client::number_word(mode_words, entry->mode);
  if (mode == "ethernet")
    return *line.of.values[port_name] + ":" + (line.vlan ? std::to_string(*line.vlan) : "<VLAN>");
  if (mode == "atm" && *line.of.values[port_type] == "atm")
    return *line.of.values[port_parent] + ":" + pvc_number(line, true) + "." + pvc_number(line, false);
  if (mode != "custom")
    return {};
  const bool own = entry && !entry->circuit_id_format.empty();
  return expanded(line, own ? entry->circuit_id_format : *line.owner.values[bridge_circuit_id_format]);
}

std::string remote_id(const line& line)
{
  const port_vlan* entry = line.entry();
  const bool own = entry && !entry->remote_id_format.empty();
  return expanded(line, own ? entry->remote_id_format : *line.owner.values[bridge_remote_id_format]);
}

// Ports that share an identifier, ascending, and what it is.
struct collision {
  std::string what;  // "Circuit ID 'line 1'", with <VLAN> and the like for what a frame brings
  std::vector<uint32_t> ports;
};

// Of the subscribers' ports; for a VLAN with an entry by that entry, for all others by the port. What the card or the
// node gives all lines alike stands as its macro; an identifier that is empty is none.
std::vector<collision> collisions_of(const bridge& bridge)
{
  std::set<std::optional<uint16_t>> vlans{std::nullopt};
  for (const auto& [id, port] : bridge.ports)
    for (const auto& [vlan, entry] : port.vlans)
      vlans.insert(vlan);
  std::map<std::string, std::set<uint32_t>> ports_by_identifier;
  for (const auto& [id, port] : bridge.ports) {
    if (port.values[port_state] != "subscriber")
      continue;
    for (const std::optional<uint16_t>& vlan : vlans) {
      const line one{bridge, id, port, vlan};
      ports_by_identifier["Circuit ID '" + printable(circuit_id(one)) + "'"].insert(id);
      ports_by_identifier["Remote ID '" + printable(remote_id(one)) + "'"].insert(id);
    }
  }
  std::vector<collision> found;
  for (const auto& [what, ports] : ports_by_identifier)
    if (ports.size() > 1 && !what.ends_with("''"))
      found.push_back({what, {ports.begin(), ports.end()}});
  return found;
}

// What contradicts itself or does nothing on a card
// -------------------------------------------------------------------------------------------------------------------

// Looks at one card, object by object, and warns with the line where each was added.
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

void check_run(const context& context, const given_words& given)
{
  const std::string& name = given.arguments[0];
  card_file file = card_file_read(name);
  std::vector<finding> findings = file.findings;
  if (file.usable() && !file.wanted.initialised)
    findings.push_back({0, true, "makes no card without 'init'"});
  for (const finding& doubt : doubter(file).look())
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
