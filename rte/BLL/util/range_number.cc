#include "rte/BLL/util/range_number.h"

#include "rte/BLL/util/range_text.h"

#include <algorithm>
#include <optional>

namespace {

std::optional<CRangeNumber::range_t> range_parse(std::string_view text, uint64_t least, uint64_t most)
{
  const range_text::parts parts = range_text::split_range(text);
  const std::optional<uint64_t> first = range_text::number(parts.first);
  const std::optional<uint64_t> last = range_text::number(parts.last);
  if (!first || !last || *first > *last || *first < least || *last > most)
    return std::nullopt;
  return CRangeNumber::range_t{*first, *last};
}

}  // namespace

bool CRangeNumber::parse(std::string_view text, uint64_t least, uint64_t most)
{
  CRangeNumber parsed;
  const bool whole = range_text::for_each_item(text, [&](std::string_view item) {
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
