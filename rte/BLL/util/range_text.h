// What the texts of all ranges share: items between commas, two ends around a hyphen, decimal numbers.
#ifndef RTE_BLL_UTIL_RANGE_TEXT_H
#define RTE_BLL_UTIL_RANGE_TEXT_H

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

namespace range_text {

inline std::string_view trimmed(std::string_view text)
{
  const size_t begin = text.find_first_not_of(' ');
  return begin == std::string_view::npos ? std::string_view()
                                         : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

// The whole text as a decimal number.
inline std::optional<uint64_t> number(std::string_view text)
{
  uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc{} || end != text.data() + text.size())
    return std::nullopt;
  return value;
}

struct parts {
  std::string_view first;
  std::string_view last;  // the same as `first` where there is no hyphen
};

inline parts split_range(std::string_view item)
{
  const size_t hyphen = item.find('-');
  if (hyphen == std::string_view::npos)
    return {item, item};
  return {trimmed(item.substr(0, hyphen)), trimmed(item.substr(hyphen + 1))};
}

// Calls `take` with each item between commas until it says false. True when it took all of at least one.
template <typename Take>
bool for_each_item(std::string_view text, Take take)
{
  while (true) {
    const size_t comma = text.find(',');
    if (!take(trimmed(text.substr(0, comma))))
      return false;
    if (comma == std::string_view::npos)
      return true;
    text.remove_prefix(comma + 1);
  }
}

}  // namespace range_text

#endif
