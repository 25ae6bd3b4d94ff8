#include "tools/pppoeiactl/config/settings.h"

#include <algorithm>

namespace config {
namespace {

// By what the settings are told whose getters have no function id.
struct expansion {
  std::string_view setter;
  std::string_view macro;
};

constexpr expansion expansions[] = {
    {"pppoeia_bridge_sysname_set", "$SYSNAME"},       {"pppoeia_bridge_location_set", "$LOCATION"},
    {"pppoeia_bridge_contact_set", "$CONTACT"},       {"pppoeia_bridge_intf_descr_set", "$INTF_DSCR"},
    {"pppoeia_bridge_cpe_serial_set", "$CPE_SERIAL"}, {"pppoeia_bridge_cpe_mac_set", "$CPE_MAC"},
};

std::string initial_text(const api::argument&, const char* text)
{
  return text;
}

std::string initial_text(const api::argument& argument, int64_t number)
{
  return agent_client::number_word(argument, number);
}

// A row of the agent's table.
template <typename Factory>
setting of_agent(std::string name, const Factory& factory, std::string_view setter, std::string_view getter)
{
  constexpr size_t mac_characters = 17;
  std::ranges::replace(name, '_', '-');
  const api::argument& value = api::find_operation(setter)->arguments().back();
  setting row{name, initial_text(value, factory), change::by_setter, setter};
  if (api::find_operation(getter))
    row.getter = getter;
  else if (const auto* told = std::ranges::find(expansions, setter, &expansion::setter); told != std::end(expansions)) {
    row.macro = told->macro;
    row.most = value.what == api::kind::mac ? mac_characters : value.size;
  }
  return row;
}

#define OF_BRIDGE(name, field, setter, getter, ...) of_agent(#name, bridge_factory.field, #setter, #getter),
#define OF_PORT(name, field, setter, getter, ...) of_agent(#name, port_factory.field, #setter, #getter),
#define OF_OWN(name, factory, setter, getter) of_agent(#name, factory, #setter, #getter),

using node_table = std::array<setting, node_values>;
using bridge_table = std::array<setting, bridge_values>;
using port_table = std::array<setting, port_values>;

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
  static const node_table rows{PPPOEIA_PROCESS_SETTINGS(OF_OWN)};
  return rows;
}

// The largest PDU of a new bridge is what its device allows, which no operation tells.
std::span<const setting, bridge_values> bridge_settings()
{
  static const bridge_table rows{setting{"slots", "", change::by_birth, "pppoeia_bridge_add"},
                                 PPPOEIA_BRIDGE_SETTINGS(OF_BRIDGE, OF_BRIDGE, OF_OWN)};
  return rows;
}

// Of the location, each type of port shows what it uses.
std::span<const setting, port_values> port_settings()
{
  constexpr std::string_view add = "pppoeia_port_add";
  constexpr std::string_view rename = "pppoeia_port_name_update";
  static const port_table rows{setting{"device", "", change::by_birth, add},
                               setting{"name", "", change::by_name, rename, "", "$INTF", 14},
                               setting{"type", "", change::by_birth, add, "", "$INTF_TYPE", 10},
                               setting{"kind", "0", change::by_birth, add},
                               setting{"panel-kind", "0", change::by_name, rename},
                               setting{"panel", "", change::by_name, rename, "", "$PANEL", 8},
                               setting{"onu", "0", change::by_name, rename, "", "$ONU", 10},
                               setting{"gem", "0", change::by_name, rename, "", "$VGEM", 10},
                               setting{"pvc", "0", change::by_name, rename, "", "$PVC_INTF", 10},
                               setting{"reserved", "0", change::by_name, rename},
                               PPPOEIA_PORT_SETTINGS(OF_PORT, OF_PORT, OF_OWN)};
  return rows;
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
