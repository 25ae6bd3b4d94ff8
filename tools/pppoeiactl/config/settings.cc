#include "tools/pppoeiactl/config/settings.h"

#include <limits>

namespace config {
namespace {

constexpr setting node_rows[] = {
    {"debug-state", "off", change::by_setter, "pppoeia_debug_admin_state_set", "pppoeia_debug_admin_state_get", ""},
    {"log-level", "info", change::by_setter, "pppoeia_log_level_set", "pppoeia_log_level_get", ""},
};

// The largest PDU of a new bridge is what its device allows, which no operation tells.
constexpr setting bridge_rows[] = {
    {"slots", "", change::by_birth, "pppoeia_bridge_add", "", ""},
    {"max-pdu", "", change::by_setter, "pppoeia_bridge_max_pdu_set", "pppoeia_bridge_max_pdu_get", ""},
    {"state", "on", change::by_setter, "pppoeia_bridge_state_set", "pppoeia_bridge_state_get", ""},
    {"vendor", "VELTRONA", change::by_setter, "pppoeia_bridge_vendor_set", "pppoeia_bridge_vendor_get", ""},
    {"shelf-id", "", change::by_setter, "pppoeia_bridge_shelf_id_set", "pppoeia_bridge_shelf_id_get", ""},
    {"chassis-id", "99", change::by_setter, "pppoeia_bridge_chassis_id_set", "pppoeia_bridge_chassis_id_get", ""},
    {"sysname", "", change::by_setter, "pppoeia_bridge_sysname_set", "", "$SYSNAME", 64},
    {"location", "", change::by_setter, "pppoeia_bridge_location_set", "", "$LOCATION", 64},
    {"contact", "", change::by_setter, "pppoeia_bridge_contact_set", "", "$CONTACT", 64},
    {"vsa-mode", "remove", change::by_setter, "pppoeia_bridge_vsa_mode_set", "pppoeia_bridge_vsa_mode_get", ""},
    {"insert-circuit-id", "on", change::by_setter, "pppoeia_bridge_vsa_insert_circuit_id_set",
     "pppoeia_bridge_vsa_insert_circuit_id_get", ""},
    {"insert-remote-id", "on", change::by_setter, "pppoeia_bridge_vsa_insert_remote_id_set",
     "pppoeia_bridge_vsa_insert_remote_id_get", ""},
    {"circuit-id-cvlan", "off", change::by_setter, "pppoeia_bridge_vsa_circuit_id_cvlan_set",
     "pppoeia_bridge_vsa_circuit_id_cvlan_get", ""},
    {"circuit-id-format", "", change::by_setter, "pppoeia_circuit_id_format_set", "pppoeia_circuit_id_format_get", ""},
    {"remote-id-format", "", change::by_setter, "pppoeia_remote_id_format_set", "pppoeia_remote_id_format_get", ""},
};

// Of the location, each type of port shows what it uses.
constexpr setting port_rows[] = {
    {"device", "", change::by_birth, "pppoeia_port_add", "", ""},
    {"name", "", change::by_name, "pppoeia_port_name_update", "", "$INTF", 14},
    {"type", "", change::by_birth, "pppoeia_port_add", "", "$INTF_TYPE", 10},
    {"kind", "0", change::by_birth, "pppoeia_port_add", "", ""},
    {"panel-kind", "0", change::by_name, "pppoeia_port_name_update", "", ""},
    {"panel", "", change::by_name, "pppoeia_port_name_update", "", "$PANEL", 8},
    {"onu", "0", change::by_name, "pppoeia_port_name_update", "", "$ONU", 10},
    {"gem", "0", change::by_name, "pppoeia_port_name_update", "", "$VGEM", 10},
    {"pvc", "0", change::by_name, "pppoeia_port_name_update", "", "$PVC_INTF", 10},
    {"reserved", "0", change::by_name, "pppoeia_port_name_update", "", ""},
    {"parent", "0", change::by_setter, "pppoeia_port_parent_set", "pppoeia_port_parent_get", ""},
    {"trust", "trusted", change::by_setter, "pppoeia_port_trust_set", "pppoeia_port_trust_get", ""},
    {"state", "disabled", change::by_setter, "pppoeia_port_state_set", "pppoeia_port_state_get", ""},
    {"remote-id", "", change::by_setter, "pppoeia_port_remote_id_set", "pppoeia_port_remote_id_get", ""},
    {"circuit-id-mode", "ethernet", change::by_setter, "pppoeia_port_vsa_circuit_id_mode_set",
     "pppoeia_port_vsa_circuit_id_mode_get", ""},
    {"pvc", "4294967295 4294967295", change::by_setter, "pppoeia_port_pvc_set", "pppoeia_port_pvc_get", ""},
    {"description", "", change::by_setter, "pppoeia_bridge_intf_descr_set", "", "$INTF_DSCR", 64},
    {"cpe-serial", "", change::by_setter, "pppoeia_bridge_cpe_serial_set", "", "$CPE_SERIAL", 12},
    {"cpe-mac", "00:00:00:00:00:00", change::by_setter, "pppoeia_bridge_cpe_mac_set", "", "$CPE_MAC", 17},
};

bool is_number(api::kind what)
{
  return what == api::kind::u16 || what == api::kind::u32 || what == api::kind::i32 || what == api::kind::out_u32 ||
         what == api::kind::out_i32;
}

// A 32-bit number, of whatever sign, as the setter's argument says it.
std::string number_text(const api::argument& argument, int64_t number)
{
  if (argument.what == api::kind::i32)
    number = static_cast<int32_t>(number);
  else if (argument.what == api::kind::u32)
    number = static_cast<uint32_t>(number);
  return agent_client::number_word(argument, number);
}

std::string mac_text(const std::string& text)
{
  std::string why;
  const std::optional<agent_client::buffer> bytes = agent_client::encode({api::kind::mac, "mac", 6, {}}, text, why);
  std::string written;
  char two[4];
  for (size_t i = 0; bytes && i < bytes->size(); ++i) {
    std::snprintf(two, sizeof two, i == 0 ? "%02X" : ":%02X", (*bytes)[i]);
    written += two;
  }
  return written;
}

void append(std::string& values, const std::string& text)
{
  values += (values.empty() ? "" : " ") + text;
}

}  // namespace

std::span<const setting, node_values> node_settings()
{
  return node_rows;
}

std::span<const setting, bridge_values> bridge_settings()
{
  return bridge_rows;
}

std::span<const setting, port_values> port_settings()
{
  return port_rows;
}

std::string canonical(const api::operation& setter, size_t skip, std::span<const std::string> words)
{
  std::string values;
  for (size_t i = skip; i < setter.arguments().size(); ++i) {
    const api::argument& argument = setter.arguments()[i];
    if (argument.what == api::kind::mac)
      append(values, mac_text(words[i]));
    else if (is_number(argument.what))
      append(values, number_text(argument, agent_client::number_parse(argument, words[i]).value_or(0)));
    else
      return words[i];
  }
  return values;
}

std::string told_value(const setting& setting, const agent_client::answer& answer, size_t skip)
{
  const api::operation& getter = *api::find_operation(setting.getter);
  const api::operation& setter = *api::find_operation(setting.setter);
  std::string values;
  for (size_t i = skip; i < getter.arguments().size(); ++i) {
    const api::argument& told = getter.arguments()[i];
    if (told.what == api::kind::out_text)
      return agent_client::text_of(answer.buffers[i]);
    append(values, number_text(setter.arguments()[i], agent_client::number_of(told, answer.buffers[i])));
  }
  return values;
}

words value_words(const setting& setting, size_t skip, const std::string& text)
{
  const api::operation& setter = *api::find_operation(setting.setter);
  if (setter.arguments().size() == skip + 1)
    return {text};
  const size_t blank = text.find(' ');
  return {text.substr(0, blank), text.substr(blank + 1)};
}

}  // namespace config
