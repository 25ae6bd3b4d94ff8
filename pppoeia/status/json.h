// Objects of JSON, written as text. Names are this program's own; texts are any bytes: valid UTF-8 comes out, with
// control characters and bytes above 127 as the characters of the same number (\u00xx).
#ifndef PPPOEIA_STATUS_JSON_H
#define PPPOEIA_STATUS_JSON_H

#include "base/packed.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

inline void json_escape(std::string& to, std::string_view text)
{
  to += '"';
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    char escaped[8];
    if (byte < 0x20 || byte > 0x7e)
      to.append(escaped, static_cast<size_t>(std::snprintf(escaped, sizeof escaped, "\\u%04x", byte)));
    else
      ((c == '"' || c == '\\') ? to += '\\' : to) += c;
  }
  to += '"';
}

inline std::string hex_text(std::string_view from)
{
  constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (const char c : from) {
    text += digits[static_cast<unsigned char>(c) >> 4];
    text += digits[static_cast<unsigned char>(c) & 15];
  }
  return text;
}

inline std::string mac_text(uint64_t mac)
{
  char text[18];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", static_cast<unsigned>(mac >> 40 & 0xff),
                static_cast<unsigned>(mac >> 32 & 0xff), static_cast<unsigned>(mac >> 24 & 0xff),
                static_cast<unsigned>(mac >> 16 & 0xff), static_cast<unsigned>(mac >> 8 & 0xff),
                static_cast<unsigned>(mac & 0xff));
  return text;
}

// One object, appended to a text from its construction on; complete when it is destroyed.
class json_object {
public:
  explicit json_object(std::string& to) : to_(to) { to_ += '{'; }
  ~json_object() { to_ += '}'; }
  json_object(const json_object&) = delete;
  json_object& operator=(const json_object&) = delete;

  void text(std::string_view name, std::string_view value)
  {
    begin(name);
    json_escape(to_, value);
  }
  void number(std::string_view name, uint64_t value)
  {
    begin(name);
    to_ += std::to_string(value);
  }

private:
  void begin(std::string_view name)
  {
    if (to_.back() != '{')
      to_ += ',';
    json_escape(to_, name);
    to_ += ':';
  }
  std::string& to_;
};

#endif
