#include "platform/kvbridged/address_table.h"

#include <utility>

namespace kvbridged {

void address_table::port_add(bool network, size_t share)
{
  ports_.push_back({network, share, {}, {}});
}

bool address_table::may_move(size_t from, size_t to, bool for_subscriber) const
{
  return ports_[to].network && (ports_[from].network || for_subscriber);
}

bool address_table::seen(const mac_address& address, size_t port, time_point now, bool for_subscriber)
{
  if (const auto at = entries_.find(address); at != entries_.end()) {
    entry& known = at->second;
    if (fresh(known, now) && known.port == port) {
      order& by_use = ports_[port].by_use;
      by_use.splice(by_use.end(), by_use, known.used_at);
      known.seen = now;
      return true;
    }
    if (fresh(known, now) && !may_move(known.port, port, for_subscriber))
      return false;
    forget(at);
  }
  add(address, port, now);
  return true;
}

std::optional<size_t> address_table::port_of(const mac_address& address, time_point now) const
{
  const auto at = entries_.find(address);
  return at != entries_.end() && fresh(at->second, now) ? std::optional(at->second.port) : std::nullopt;
}

void address_table::add(const mac_address& address, size_t port, time_point now)
{
  port_share& share = ports_[port];
  make_room(share, now);
  share.by_learning.push_back(address);
  share.by_use.push_back(address);
  entries_[address] = {port, now, std::prev(share.by_learning.end()), std::prev(share.by_use.end())};
}

// Every address that is forgotten here was added once, so this costs no more than adding did.
void address_table::make_room(port_share& share, time_point now)
{
  while (!share.by_use.empty()) {
    const auto oldest = entries_.find(share.by_use.front());
    if (fresh(oldest->second, now))
      break;
    forget(oldest);
  }
  if (share.by_learning.size() >= share.size)
    forget(entries_.find(share.by_learning.back()));
}

void address_table::forget(entry_map::iterator at)
{
  port_share& share = ports_[at->second.port];
  share.by_learning.erase(at->second.learned_at);
  share.by_use.erase(at->second.used_at);
  entries_.erase(at);
}

}  // namespace kvbridged
