#include "pppoeia/status/filter.h"

#include "pppoeia/frame/parse.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <strings.h>

namespace {

struct named_code {
  std::string_view name;
  uint8_t code;
};
constexpr named_code named_codes[] = {
    {"PADI", pppoe::padi}, {"PADO", pppoe::pado}, {"PADR", pppoe::padr}, {"PADS", pppoe::pads}, {"PADT", pppoe::padt}};

template <typename Number>
std::optional<Number> number_read(const std::string& text, int base = 10)
{
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc{} || end != text.data() + text.size())
    return std::nullopt;
  return number;
}

// "02:11:22:aa:bb:cc", or with hyphens.
std::optional<uint64_t> mac_read(std::string text)
{
  constexpr size_t length = 17;
  if (text.size() != length)
    return std::nullopt;
  std::string digits;
  for (size_t i = 0; i < length; ++i)
    if (i % 3 != 2)
      digits += text[i];
    else if (text[i] != ':' && text[i] != '-')
      return std::nullopt;
  return number_read<uint64_t>(digits, 16);
}

std::optional<uint8_t> code_read(const std::string& text)
{
  for (const named_code& code : named_codes)
    if (strcasecmp(text.c_str(), code.name.data()) == 0)
      return code.code;
  return number_read<uint8_t>(text);
}

bool value_read(const std::string& name, const std::string& value, filter& wanted)
{
  if (name == "bridge")
    wanted.bridge = value;
  else if (name == "port")
    wanted.port = number_read<uint32_t>(value);
  else if (name == "mac")
    wanted.client = mac_read(value);
  else if (name == "code")
    wanted.code = code_read(value);
  else if (name == "dropped")
    wanted.dropped_only = value != "0";
  else
    return false;
  return (name != "port" || wanted.port) && (name != "mac" || wanted.client) && (name != "code" || wanted.code);
}

}  // namespace

std::optional<filter> filter_read(const http_request& request)
{
  filter wanted;
  for (const auto& [name, value] : request.values)
    if (!value_read(name, value, wanted))
      return std::nullopt;
  return wanted;
}

std::string code_text(uint8_t code)
{
  for (const named_code& named : named_codes)
    if (code == named.code)
      return std::string(named.name);
  return std::to_string(code);
}
