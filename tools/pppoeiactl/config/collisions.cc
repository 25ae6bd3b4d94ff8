#include "tools/pppoeiactl/config/collisions.h"

#include "tools/pppoeiactl/format/format_reading.h"

#include <algorithm>
#include <set>

namespace config {
namespace {

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
    mode = agent_client::number_word({api::kind::u32, "mode", 4, api::values::cid_mode}, entry->mode);
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

}  // namespace

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

}  // namespace config
