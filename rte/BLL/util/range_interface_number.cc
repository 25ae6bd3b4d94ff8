#include "rte/BLL/util/range_interface_number.h"

#include "rte/BLL/util/range_text.h"

#include <optional>

namespace {

struct interface_t {
  std::optional<uint64_t> slot;  // not given at the end of "2/1-8"
  std::optional<uint64_t> port;
};

interface_t interface_parse(std::string_view text)
{
  const size_t slash = text.find('/');
  if (slash == std::string_view::npos)
    return {std::nullopt, range_text::number(text)};
  const std::optional<uint64_t> slot = range_text::number(text.substr(0, slash));
  // A slot that is no number spoils the whole.
  return {slot, slot ? range_text::number(text.substr(slash + 1)) : std::nullopt};
}

}  // namespace

bool CRangeInterfaceNumber::parse(std::string_view text)
{
  CRangeInterfaceNumber parsed;
  const bool whole = range_text::for_each_item(text, [&](std::string_view item) {
    const range_text::parts parts = range_text::split_range(item);
    const interface_t first = interface_parse(parts.first);
    const interface_t last = interface_parse(parts.last);
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
