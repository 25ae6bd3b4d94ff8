// Says in the log when a port drops many frames: one line when it begins, one when it is over.
#ifndef PPPOEIA_STATUS_DROP_ALARM_H
#define PPPOEIA_STATUS_DROP_ALARM_H

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

class bridge_status;

// Used by one thread. Holds nothing of a port that drops nothing.
class drop_alarm {
public:
  // More than `most` drops within a minute are told; it is over when half as many are left. 0: nothing is told.
  explicit drop_alarm(uint32_t most) : most_(most) {}

  // Looks at every bridge. To be called about once a second with the time in seconds, of any clock that does not go
  // back.
  void look(uint64_t second);

private:
  static constexpr size_t window_s = 60;

  // Drops of a port in the last minute, by the second.
  struct port_window {
    std::array<uint32_t, window_s> drops{};
    uint32_t sum = 0;
    uint64_t all = 0;  // since the alarm began
    bool told = false;
  };
  struct watched_bridge {
    uint64_t drops = 0;            // of all ports, at the last look
    std::vector<uint64_t> counts;  // by port, at the last look; empty before the first drop
    std::map<uint32_t, port_window> ports;
  };
  using bridge_list = std::vector<std::shared_ptr<bridge_status>>;

  void forget_deleted(const bridge_list& bridges);
  void age(watched_bridge& watched, uint64_t seconds) const;
  void count_new(const bridge_status& bridge, watched_bridge& watched) const;
  void tell(const bridge_status& bridge, uint32_t port, port_window& window) const;

  uint32_t most_;
  uint64_t second_ = 0;
  std::map<std::shared_ptr<bridge_status>, watched_bridge> bridges_;
};

#endif
