#include "pppoeia/status/drop_alarm.h"

#include "pppoeia/log.h"
#include "pppoeia/status/bridge_status.h"
#include "pppoeia/status/json.h"

#include <algorithm>
#include <utility>

void drop_alarm::look(uint64_t second)
{
  if (most_ == 0 || second == second_)
    return;
  const uint64_t passed = second - second_;
  second_ = second;
  const auto bridges = bridge_statuses::all();
  forget_deleted(bridges);
  for (const auto& bridge : bridges) {
    watched_bridge& watched = bridges_[bridge];
    age(watched, passed);
    count_new(*bridge, watched);
    for (auto& [port, window] : watched.ports)
      tell(*bridge, port, window);
    std::erase_if(watched.ports, [](const auto& entry) { return entry.second.sum == 0; });
  }
}

void drop_alarm::forget_deleted(const bridge_list& bridges)
{
  std::erase_if(bridges_, [&](const auto& entry) { return std::ranges::find(bridges, entry.first) == bridges.end(); });
}

// Forgets what is older than a minute.
void drop_alarm::age(watched_bridge& watched, uint64_t seconds) const
{
  for (auto& [port, window] : watched.ports)
    for (uint64_t ago = 0; ago < std::min<uint64_t>(seconds, window_s); ++ago) {
      uint32_t& drops = window.drops[(second_ - ago) % window_s];
      window.sum -= drops;
      drops = 0;
    }
}

void drop_alarm::count_new(const bridge_status& bridge, watched_bridge& watched) const
{
  const uint64_t drops = bridge.drops.count();
  if (drops == watched.drops)
    return;
  watched.drops = drops;
  watched.counts.resize(size_t{bridge.ports()} + 1);
  for (uint32_t port = 1; port <= bridge.ports(); ++port) {
    const uint64_t now = bridge.port(port).drops();
    const auto more = static_cast<uint32_t>(now - std::exchange(watched.counts[port], now));
    if (more == 0)
      continue;
    port_window& window = watched.ports[port];
    window.drops[second_ % window_s] += more;
    window.sum += more;
    window.all += more;
  }
}

void drop_alarm::tell(const bridge_status& bridge, uint32_t port, port_window& window) const
{
  if (!window.told && window.sum > most_) {
    const uint64_t last = bridge.port(port).last_drop.get();
    pppoeia_log(log_notice, "<%s> Port %u drops frames, %u in a minute: %s. The last was from %s.",
                bridge.name().c_str(), port, window.sum, words_of(static_cast<fate>(last >> 48)).text.data(),
                mac_text(last & 0xffffffffffff).c_str());
    window.told = true;
    window.all = window.sum;
  } else if (window.told && window.sum <= most_ / 2) {
    pppoeia_log(log_notice, "<%s> Port %u drops hardly a frame any more, there were %llu.", bridge.name().c_str(), port,
                static_cast<unsigned long long>(window.all));
    window.told = false;
  }
}
