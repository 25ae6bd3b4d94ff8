#include "tools/pppoeiactl/config/card.h"

#include "tools/pppoeiactl/words/line.h"

#include <algorithm>
#include <cstring>
#include <set>

namespace config {
namespace {

template <size_t Count>
void initial_values(std::array<value, Count>& values, std::span<const setting, Count> rows)
{
  for (size_t i = 0; i < Count; ++i)
    values[i] = std::string(rows[i].initial);
}

template <size_t Size>
std::string field_text(const char (&field)[Size])
{
  return {field, strnlen(field, Size)};
}

void location_set(port& port, const pppoeia_location& location)
{
  port.values[port_panel_kind] = std::to_string(location.panel_kind);
  port.values[port_panel] = field_text(location.panel);
  port.values[port_onu] = std::to_string(location.onu);
  port.values[port_gem] = std::to_string(location.gem);
  port.values[port_pvc_intf] = std::to_string(location.pvc_intf);
  port.values[port_reserved] = std::to_string(location.reserved);
}

// A record as its words mean it.
template <typename Record>
Record record_of(api::kind what, const std::string& text)
{
  std::string why;
  const std::optional<agent_client::buffer> bytes =
      agent_client::encode({what, "record", sizeof(Record), {}}, text, why);
  Record record{};
  if (bytes)
    std::memcpy(&record, bytes->data(), std::min(bytes->size(), sizeof record));
  return record;
}

}  // namespace

port::port()
{
  initial_values(values, port_settings());
}

bridge::bridge()
{
  initial_values(values, bridge_settings());
  values[bridge_slots] = std::nullopt;
  values[bridge_max_pdu] = std::nullopt;
}

card::card()
{
  initial_values(values, node_settings());
}

std::string location_text(const port& port)
{
  std::string list;
  for (size_t i = port_panel_kind; i <= port_reserved; ++i) {
    const setting& row = port_settings()[i];
    const std::string& text = port.values[i] ? *port.values[i] : std::string(row.initial);
    if (text != row.initial)
      list += (list.empty() ? "" : ",") + std::string(row.key) + "=" + agent_client::record_value(text);
  }
  return list;
}

std::string birth_record(const port& port)
{
  const auto text = [&](port_value which) {
    return port.values[which].value_or(std::string(port_settings()[which].initial));
  };
  std::string list;
  const auto add = [&](const std::string& part) { list += (list.empty() ? "" : ",") + part; };
  if (!text(port_type).empty())
    add("type=" + agent_client::record_value(text(port_type)));
  if (text(port_kind) != "0")
    add("kind=" + text(port_kind));
  if (text(port_parent) != "0")
    add("parent=" + text(port_parent));
  if (const std::string location = location_text(port); !location.empty())
    add(location);
  return list;
}

std::string port_text(const std::string& bridge, uint32_t id)
{
  return "port " + std::to_string(id) + " of " + bridge;
}

std::vector<uint32_t> parents_first(const std::map<uint32_t, port>& ports)
{
  std::vector<uint32_t> ordered;
  std::set<uint32_t> seen;
  for (const auto& [id, port] : ports) {
    std::vector<uint32_t> above;
    uint32_t at = id;
    while (ports.contains(at) && seen.insert(at).second) {
      above.push_back(at);
      at = static_cast<uint32_t>(std::stoul(ports.at(at).values[port_parent].value_or("0")));
    }
    ordered.insert(ordered.end(), above.rbegin(), above.rend());
  }
  return ordered;
}

std::string cut(const std::string& text, size_t most, const char* what, words& notes)
{
  if (text.size() > most)
    notes.push_back(std::string(what) + " '" + printable(text) + "' is cut to " + std::to_string(most) +
                    " characters: '" + printable(text.substr(0, most)) + "'");
  return text.substr(0, most);
}

port port_born(const words& inputs, words& notes)
{
  const auto info = record_of<pppoeia_port_info>(api::kind::port_info, inputs[4]);
  port added;
  added.values[port_device] = cut(inputs[2], 16, "device name", notes);
  added.values[port_name] = cut(inputs[3], 14, "port name", notes);
  added.values[port_type] = field_text(info.type);
  added.values[port_kind] = std::to_string(info.kind);
  added.values[port_parent] = std::to_string(info.parent_id);
  location_set(added, info.location);
  return added;
}

void port_renamed(port& port, const words& inputs, words& notes)
{
  port.values[port_name] = cut(inputs[2], 14, "port name", notes);
  location_set(port, record_of<pppoeia_name_update>(api::kind::name_update, inputs[3]).location);
}

}  // namespace config
