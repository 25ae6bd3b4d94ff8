#include "tools/agent_client/values.h"

#include "pppoeia/api/records.h"
#include "rte/BLL/util/kv_util.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>

namespace agent_client {
namespace {

using api::kind;

std::optional<int64_t> integer_parse(std::string_view text)
{
  const bool negative = text.starts_with('-');
  if (negative)
    text.remove_prefix(1);
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  if (hex)
    text.remove_prefix(2);
  int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, hex ? 16 : 10);
  if (text.empty() || text[0] == '-' || error != std::errc{} || end != text.data() + text.size())
    return std::nullopt;
  return negative ? -value : value;
}

struct range {
  int64_t least;
  int64_t most;
};

// Unsigned arguments take -1 too: it is how some modes are written.
range range_of(kind what)
{
  switch (what) {
  case kind::u16:
    return {0, std::numeric_limits<uint16_t>::max()};
  case kind::i32:
  case kind::out_i32:
    return {std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()};
  default:
    return {-1, std::numeric_limits<uint32_t>::max()};
  }
}

template <typename Number>
buffer bytes_of(Number number)
{
  buffer bytes(sizeof number);
  std::memcpy(bytes.data(), &number, sizeof number);
  return bytes;
}

buffer terminated(std::string_view text)
{
  buffer bytes(text.begin(), text.end());
  bytes.push_back(0);
  return bytes;
}

// One field of a port record, found by its key.
struct record_field {
  std::string_view key;
  uint32_t pppoeia_location::*location;
  uint32_t pppoeia_port_info::*info;
};

constexpr record_field number_fields[] = {
    {"parent", nullptr, &pppoeia_port_info::parent_id},
    {"kind", nullptr, &pppoeia_port_info::kind},
    {"panel-kind", &pppoeia_location::panel_kind, nullptr},
    {"onu", &pppoeia_location::onu, nullptr},
    {"gem", &pppoeia_location::gem, nullptr},
    {"pvc", &pppoeia_location::pvc_intf, nullptr},
    {"reserved", &pppoeia_location::reserved, nullptr},
};

std::string joined(const std::vector<std::string_view>& words)
{
  std::string text;
  for (const std::string_view word : words)
    text += (text.empty() ? "" : ", ") + std::string(word);
  return text;
}

// "'many' is no number from 0 to 9", behind the name of what it was meant for.
std::string no_number(std::string_view name, std::string_view text, const range& allowed)
{
  return std::string(name) + ": '" + std::string(text) + "' is no number from " + std::to_string(allowed.least) +
         " to " + std::to_string(allowed.most);
}

template <size_t Size>
std::string text_field(char (&field)[Size], std::string_view key, std::string_view value, size_t most)
{
  if (value.size() > most)
    return std::string(key) + ": '" + std::string(value) + "' has " + std::to_string(value.size()) +
           " characters, at most " + std::to_string(most);
  std::memcpy(field, value.data(), value.size());
  return {};
}

std::string no_field(std::string_view key)
{
  std::vector<std::string_view> keys{"type", "panel"};
  for (const record_field& field : number_fields)
    keys.push_back(field.key);
  return "location: '" + std::string(key) + "' is none of " + joined(keys);
}

// Empty, or what is wrong with it.
std::string field_set(pppoeia_port_info& info, std::string_view key, std::string_view value)
{
  if (key == "type")
    return text_field(info.type, key, value, 10);
  if (key == "panel")
    return text_field(info.location.panel, key, value, sizeof info.location.panel);
  const auto* field = std::ranges::find(number_fields, key, &record_field::key);
  if (field == std::end(number_fields))
    return no_field(key);
  const range allowed{0, std::numeric_limits<uint32_t>::max()};
  const std::optional<int64_t> number = integer_parse(value);
  if (!number || *number < allowed.least || *number > allowed.most)
    return no_number(key, value, allowed);
  (field->info ? info.*field->info : info.location.*field->location) = static_cast<uint32_t>(*number);
  return {};
}

// Takes the part before the next comma off the front of a list; a backslash keeps the character behind it.
std::string part_take(std::string_view& list)
{
  std::string part;
  while (!list.empty()) {
    char c = list.front();
    list.remove_prefix(1);
    if (c == ',')
      break;
    if (c == '\\' && !list.empty()) {
      c = list.front();
      list.remove_prefix(1);
    }
    part += c;
  }
  return part;
}

std::optional<pppoeia_port_info> info_parse(std::string_view text, std::string& why)
{
  pppoeia_port_info info{};
  while (!text.empty()) {
    const std::string part = part_take(text);
    const size_t equals = std::min(part.find('='), part.size());
    const std::string_view key = std::string_view(part).substr(0, equals);
    why = equals == part.size() ? "location: '" + part + "' is no KEY=VALUE"
                                : field_set(info, key, std::string_view(part).substr(equals + 1));
    if (!why.empty())
      return std::nullopt;
  }
  return info;
}

// The agent takes some values more: numbers where there are words, VLAN ids of 16 bits. People are better off without.
constexpr int64_t vlan_most = 4095;

std::string no_value(const api::argument& argument, std::string_view text)
{
  std::vector<std::string_view> words;
  for (const api::value_name& name : api::names_of(argument.words))
    words.push_back(name.word);
  if (words.empty())
    return no_number(argument.name, text, {0, argument.what == kind::u16 ? vlan_most : range_of(argument.what).most});
  return std::string(argument.name) + ": '" + std::string(text) + "' is none of " + joined(words);
}

std::optional<buffer> encode_number(const api::argument& argument, std::string_view text, std::string& why)
{
  const std::optional<int64_t> number = number_parse(argument, text);
  if (!number) {
    why = no_value(argument, text);
    return std::nullopt;
  }
  if (argument.what == kind::u16)
    return bytes_of(static_cast<uint16_t>(*number));
  return bytes_of(static_cast<uint32_t>(*number));
}

}  // namespace

std::optional<int64_t> number_parse(const api::argument& argument, std::string_view text)
{
  for (const api::value_name& name : api::names_of(argument.words))
    if (name.word == text)
      return name.value;
  const std::optional<int64_t> number = integer_parse(text);
  const range allowed = range_of(argument.what);
  if (!number || *number < allowed.least || *number > allowed.most)
    return std::nullopt;
  return number;
}

std::optional<buffer> encode(const api::argument& argument, std::string_view text, std::string& why)
{
  switch (argument.what) {
  case kind::name:
  case kind::text:
  case kind::tty:
    return terminated(text);
  case kind::u16:
  case kind::u32:
  case kind::i32:
  case kind::unused:
    return encode_number(argument, text, why);
  case kind::mac: {
    buffer bytes(6);
    if (CKvUtil::stringToMac(text, bytes.data()))
      return bytes;
    why = std::string(argument.name) + ": '" + std::string(text) + "' is no MAC address such as 02:00:5e:10:00:01";
    return std::nullopt;
  }
  case kind::port_info:
  case kind::name_update:
    if (const auto info = info_parse(text, why))
      return argument.what == kind::port_info ? bytes_of(*info) : bytes_of(info->location);
    return std::nullopt;
  default:
    return output_room(argument);
  }
}

std::string record_value(std::string_view value)
{
  std::string escaped;
  for (const char c : value) {
    if (c == ',' || c == '\\')
      escaped += '\\';
    escaped += c;
  }
  return escaped;
}

buffer output_room(const api::argument& argument)
{
  return buffer(argument.size);
}

std::string text_of(const buffer& bytes)
{
  const auto* text = reinterpret_cast<const char*>(bytes.data());
  return {text, strnlen(text, bytes.size())};
}

int64_t number_of(const api::argument& argument, const buffer& bytes)
{
  uint32_t number = 0;
  std::memcpy(&number, bytes.data(), std::min(bytes.size(), sizeof number));
  return argument.what == kind::out_i32 ? static_cast<int32_t>(number) : int64_t{number};
}

std::string number_word(const api::argument& argument, int64_t number)
{
  const bool minus_one = number == std::numeric_limits<uint32_t>::max();
  for (const api::value_name& name : api::names_of(argument.words))
    if (name.value == number || (name.value == -1 && minus_one))
      return std::string(name.word);
  return std::to_string(number);
}

}  // namespace agent_client
