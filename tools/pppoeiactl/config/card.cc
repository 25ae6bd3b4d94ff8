#include "tools/pppoeiactl/config/card.h"

namespace config {
namespace {

template <size_t Count>
void initial_values(std::array<value, Count>& values, std::span<const setting, Count> rows)
{
  for (size_t i = 0; i < Count; ++i)
    values[i] = std::string(rows[i].initial);
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

std::string port_text(const std::string& bridge, uint32_t id)
{
  return "port " + std::to_string(id) + " of " + bridge;
}

}  // namespace config
