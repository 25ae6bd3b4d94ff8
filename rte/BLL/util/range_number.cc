#include "rte/BLL/util/range_number.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace {

std::string_view trimmed(std::string_view text)
{
  const size_t begin = text.find_first_not_of(' ');
  return begin == std::string_view::npos ? std::string_view()
                                         : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

// The whole text as a decimal number.
std::optional<uint64_t> decimal(std::string_view text)
{
  uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc{} || end != text.data() + text.size())
    return std::nullopt;
  return value;
}

struct ends_t {
  std::string_view first;
  std::string_view last;  // the same as `first` where there is no hyphen
};

ends_t split_range(std::string_view item)
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

std::optional<CRangeNumber::range_t> range_parse(std::string_view text, uint64_t least, uint64_t most)
{
  const ends_t ends = split_range(text);
  const std::optional<uint64_t> first = decimal(ends.first);
  const std::optional<uint64_t> last = decimal(ends.last);
  if (!first || !last || *first > *last || *first < least || *last > most)
    return std::nullopt;
  return CRangeNumber::range_t{*first, *last};
}

struct interface_t {
  std::optional<uint64_t> slot;  // not given at the end of "2/1-8"
  std::optional<uint64_t> port;
};

interface_t interface_parse(std::string_view text)
{
  const size_t slash = text.find('/');
  if (slash == std::string_view::npos)
    return {std::nullopt, decimal(text)};
  const std::optional<uint64_t> slot = decimal(text.substr(0, slash));
  // A slot that is no number spoils the whole.
  return {slot, slot ? decimal(text.substr(slash + 1)) : std::nullopt};
}

}  // namespace

bool CRangeNumber::parse(std::string_view text, uint64_t least, uint64_t most)
{
  CRangeNumber parsed;
  const bool whole = for_each_item(text, [&](std::string_view item) {
    const std::optional<range_t> range = range_parse(item, least, most);
    if (range)
      parsed.add(*range);
    return range.has_value();
  });
  if (whole)
    ranges_ = std::move(parsed.ranges_);
  return whole;
}

void CRangeNumber::add(range_t range)
{
  // Those that overlap or touch the new range become one with it.
  const auto touches = [](const range_t& a, const range_t& b) { return a.first <= b.last || a.first - 1 == b.last; };
  auto begin = std::find_if(ranges_.begin(), ranges_.end(), [&](const range_t& r) { return touches(range, r); });
  auto end = begin;
  while (end != ranges_.end() && touches(*end, range)) {
    range.first = std::min(range.first, end->first);
    range.last = std::max(range.last, end->last);
    ++end;
  }
  ranges_.insert(ranges_.erase(begin, end), range);
}

bool CRangeNumber::contains(uint64_t number) const
{
  const auto after = std::upper_bound(ranges_.begin(), ranges_.end(), number,
                                      [](uint64_t n, const range_t& r) { return n < r.first; });
  return after != ranges_.begin() && number <= std::prev(after)->last;
}

uint64_t CRangeNumber::count() const
{
  uint64_t total = 0;
  for (const range_t& range : ranges_) {
    const uint64_t more = range.last - range.first;
    if (more >= UINT64_MAX - total - 1)
      return UINT64_MAX;
    total += more + 1;
  }
  return total;
}

std::string CRangeNumber::toString() const
{
  std::string text;
  for (const range_t& range : ranges_) {
    text += (text.empty() ? "" : ",") + std::to_string(range.first);
    if (range.last != range.first)
      text += "-" + std::to_string(range.last);
  }
  return text;
}

bool CRangeIntegerNumber::expand(std::vector<uint32_t>& out, size_t at_most) const
{
  if (numbers_.count() > at_most)
    return false;
  std::vector<uint32_t> all;
  for (const CRangeNumber::range_t& range : numbers_.ranges())
    for (uint64_t number = range.first; number <= range.last; ++number)
      all.push_back(static_cast<uint32_t>(number));
  out = std::move(all);
  return true;
}

bool CRangeInterfaceNumber::parse(std::string_view text)
{
  CRangeInterfaceNumber parsed;
  const bool whole = for_each_item(text, [&](std::string_view item) {
    const ends_t ends = split_range(item);
    const interface_t first = interface_parse(ends.first);
    const interface_t last = interface_parse(ends.last);
    const bool ports = first.slot && first.port && last.port && *first.port <= *last.port && *last.port <= portMax;
    if (!ports || *first.slot > slotMax || last.slot.value_or(*first.slot) != *first.slot)
      return false;
    parsed.slots_[static_cast<uint32_t>(*first.slot)].add({*first.port, *last.port});
    return true;
  });
  if (whole)
    slots_ = std::move(parsed.slots_);
  return whole;
}

bool CRangeInterfaceNumber::contains(uint32_t slot, uint32_t port) const
{
  const auto at = slots_.find(slot);
  return at != slots_.end() && at->second.contains(port);
}

std::string CRangeInterfaceNumber::toString() const
{
  std::string text;
  for (const auto& [slot, ports] : slots_) {
    const std::string prefix = std::to_string(slot) + "/";
    for (const CRangeNumber::range_t& range : ports.ranges()) {
      text += (text.empty() ? "" : ",") + prefix + std::to_string(range.first);
      if (range.last != range.first)
        text += "-" + prefix + std::to_string(range.last);
    }
  }
  return text;
}
