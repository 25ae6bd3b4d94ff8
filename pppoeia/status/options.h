// Numbers that the environment may give.
#ifndef PPPOEIA_STATUS_OPTIONS_H
#define PPPOEIA_STATUS_OPTIONS_H

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <string_view>

// The number that the variable gives, or `usual` where it gives none from `least` to `most`.
inline uint32_t number_option(const char* variable, uint32_t usual, uint32_t least, uint32_t most)
{
  const char* const given = std::getenv(variable);
  const std::string_view digits = given ? given : "";
  uint32_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  const bool good = error == std::errc{} && end == digits.data() + digits.size() && number >= least && number <= most;
  return good ? number : usual;
}

#endif
