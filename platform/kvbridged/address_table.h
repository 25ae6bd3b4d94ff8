// Behind which port an address is, as the ports' frames tell.
//
// Whoever is at the end of a line can send any source address, and as many of them as it likes. So what one port sends
// costs the others nothing:
//
// - A port has a share of the table. When that is full, a new address takes the place of the port's own newest, so that
//   a flood pushes out the flood: what the line was known by before stays.
// - An address belongs to the port that it was seen on until nothing came from it there for 300 s. A frame of another
//   subscriber's port does not move it, whether it is a subscriber's or a server's.
// - Network ports are trusted: they take an address from each other at once, and from a subscriber's port with a frame
//   that is for a subscriber. Other frames of theirs do not, since what a subscriber sent may come back by a second
//   network port.
//
// Nothing here reads a clock: times come with the calls and never go back.
#ifndef PLATFORM_KVBRIDGED_ADDRESS_TABLE_H
#define PLATFORM_KVBRIDGED_ADDRESS_TABLE_H

#include "platform/kvbridged/frame.h"

#include <chrono>
#include <list>
#include <map>
#include <optional>
#include <vector>

namespace kvbridged {

class address_table {
public:
  using time_point = std::chrono::steady_clock::time_point;
  static constexpr std::chrono::seconds lifetime{300};

  // Adds the next port, numbered from 0, with room for `share` addresses (at least 1).
  void port_add(bool network, size_t share);

  // A frame from that address came in at that port; `for_subscriber` says that it is for a known subscriber. Whether
  // the address is that port's now: false when it stays another's. Constant but for the look-up, which is logarithmic.
  bool seen(const mac_address& address, size_t port, time_point now, bool for_subscriber);

  // The port that the address belongs to at that time.
  std::optional<size_t> port_of(const mac_address& address, time_point now) const;

private:
  using order = std::list<mac_address>;
  struct entry {
    size_t port;
    time_point seen;
    order::iterator learned_at;
    order::iterator used_at;
  };
  using entry_map = std::map<mac_address, entry>;
  struct port_share {
    bool network;
    size_t size;
    order by_learning;  // the newest at the end
    order by_use;       // the latest seen at the end
  };

  bool fresh(const entry& known, time_point now) const { return now - known.seen < lifetime; }
  bool may_move(size_t from, size_t to, bool for_subscriber) const;
  void add(const mac_address& address, size_t port, time_point now);
  void make_room(port_share& share, time_point now);
  void forget(entry_map::iterator at);

  std::vector<port_share> ports_;
  entry_map entries_;
};

}  // namespace kvbridged

#endif
