#include "pppoeia/status/http_request.h"

#include <algorithm>
#include <cctype>
#include <optional>

namespace {

// Takes what stands before the first `separator` off the front; all of it, where there is none.
std::string_view take(std::string_view& rest, std::string_view separator)
{
  const size_t at = rest.find(separator);
  const std::string_view front = rest.substr(0, at);
  rest = at == std::string_view::npos ? std::string_view() : rest.substr(at + separator.size());
  return front;
}

int hex_value(char c)
{
  const auto digit = static_cast<unsigned char>(c);
  if (!std::isxdigit(digit))
    return -1;
  return std::isdigit(digit) ? c - '0' : std::tolower(digit) - 'a' + 10;
}

// %XX as its byte; nothing for a % without two digits behind it.
std::optional<std::string> decoded(std::string_view text)
{
  std::string bytes;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      bytes += text[i];
      continue;
    }
    if (i + 2 >= text.size() || hex_value(text[i + 1]) < 0 || hex_value(text[i + 2]) < 0)
      return std::nullopt;
    bytes += static_cast<char>(hex_value(text[i + 1]) * 16 + hex_value(text[i + 2]));
    i += 2;
  }
  return bytes;
}

bool target_read(std::string_view target, http_request& request)
{
  const auto path = decoded(take(target, "?"));
  if (!path || !path->starts_with('/'))
    return false;
  request.path = *path;
  while (!target.empty()) {
    std::string_view pair = take(target, "&");
    const auto name = decoded(take(pair, "="));
    const auto value = decoded(pair);
    if (!name || !value)
      return false;
    request.values.emplace_back(*name, *value);
  }
  return true;
}

bool is_accept(std::string_view field)
{
  constexpr std::string_view name = "accept:";
  return field.size() >= name.size() && std::equal(name.begin(), name.end(), field.begin(), [](char a, char b) {
           return a == std::tolower(static_cast<unsigned char>(b));
         });
}

}  // namespace

request_state http_request_read(std::string_view received, http_request& request)
{
  const size_t end = received.find("\r\n\r\n");
  if (end == std::string_view::npos)
    return received.size() < http_request_most ? request_state::incomplete : request_state::wrong;
  std::string_view head = received.substr(0, end);
  std::string_view line = take(head, "\r\n");
  const std::string_view method = take(line, " ");
  const std::string_view target = take(line, " ");
  if (!line.starts_with("HTTP/1."))
    return request_state::wrong;
  if (method != "GET")
    return request_state::wrong_method;
  http_request read;
  if (!target_read(target, read))
    return request_state::wrong;
  while (!head.empty())
    if (const std::string_view field = take(head, "\r\n");
        is_accept(field) && field.find("application/openmetrics-text") != std::string_view::npos)
      read.wants_openmetrics = true;
  request = std::move(read);
  return request_state::complete;
}
