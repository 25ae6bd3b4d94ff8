#include "tools/pppoeiactl/warning.h"

#include <algorithm>

namespace {

using api::kind;

// Operations that cut a text where others refuse it.
constexpr std::string_view cutting[] = {"pppoeia_port_add", "pppoeia_port_name_update", "pppoeia_bridge_intf_descr_set",
                                        "pppoeia_bridge_cpe_serial_set"};

// Operations that look at the low 12 bits of a VLAN id; lists of entries keep it whole.
constexpr std::string_view masking[] = {"pppoeia_bridge_vlan_set", "pppoeia_bridge_vlan_get"};

constexpr int64_t vlan_most = 4095;
constexpr int64_t frame_least = 60;

bool among(std::span<const std::string_view> names, std::string_view name)
{
  return std::ranges::find(names, name) != names.end();
}

std::string quoted(const api::argument& argument, const std::string& text)
{
  return std::string(argument.name) + ": '" + printable(text) + "' ";
}

std::string of_words(const api::argument& argument, const std::string& text, int64_t number)
{
  std::string list;
  for (const api::value_name& name : api::names_of(argument.words)) {
    if (name.value == number || (name.value == -1 && number == UINT32_MAX))
      return {};
    list += (list.empty() ? "" : ", ") + std::string(name.word);
  }
  return list.empty() ? list : quoted(argument, text) + "means nothing (" + list + ")";
}

std::string of_vlan(const api::operation& operation, const api::argument& argument, const std::string& text,
                    int64_t number)
{
  if (argument.what != kind::u16 || number <= vlan_most)
    return {};
  if (among(masking, operation.name))
    return quoted(argument, text) + "acts on VLAN " + std::to_string(number & vlan_most);
  return quoted(argument, text) + "is the VLAN of no frame (0 to 4095)";
}

std::string of_number(const api::operation& operation, const api::argument& argument, const std::string& text)
{
  const std::optional<int64_t> number = agent_client::number_parse(argument, text);
  if (!number)
    return {};
  if (operation.name == "pppoeia_bridge_max_pdu_set" && *number < frame_least)
    return quoted(argument, text) + "leaves room for no PADI: each is answered with an error";
  if (operation.name == "pppoeia_bridge_add" && argument.name == "ports" && *number < 2)
    return quoted(argument, text) + "leaves room for no port: ports are 1 to one less";
  const std::string why = of_words(argument, text, *number);
  return why.empty() ? of_vlan(operation, argument, text, *number) : why;
}

std::string of_text(const api::operation& operation, const api::argument& argument, const std::string& text)
{
  if (text.size() <= argument.size || !among(cutting, operation.name))
    return {};
  return quoted(argument, text) + "is cut to '" + printable(text.substr(0, argument.size)) + "'";
}

}  // namespace

words warnings_of(const api::operation& operation, const words& inputs)
{
  words warnings;
  auto next = inputs.begin();
  for (const api::argument& argument : operation.arguments()) {
    if (api::is_output(argument.what) || next == inputs.end())
      continue;
    const bool number = argument.what == kind::u16 || argument.what == kind::u32 || argument.what == kind::i32;
    const std::string why = number                        ? of_number(operation, argument, *next)
                            : argument.what == kind::text ? of_text(operation, argument, *next)
                                                          : std::string();
    if (!why.empty())
      warnings.push_back(why);
    ++next;
  }
  return warnings;
}
