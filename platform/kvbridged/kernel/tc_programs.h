// The programs of one kernel bridge: loading them, their places at the members and the helper device, their maps.
//
// They stay in their places when the process ends. The next one loads its own, goes on with the counts and roles of
// those that it finds, and puts its own in their places; what is between is closed, since the heart of the old ones has
// stopped.
#ifndef PLATFORM_KVBRIDGED_KERNEL_TC_PROGRAMS_H
#define PLATFORM_KVBRIDGED_KERNEL_TC_PROGRAMS_H

#include "platform/kvbridged/kernel/bpf/maps.h"
#include "platform/kvbridged/settings.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

struct discovery_bpf;

namespace kvbridged {

// A member's place on the road.
struct member_role {
  bool uplink = false;
  uint16_t number = 0;  // of the port; without one its road is down
  bool operator==(const member_role&) const = default;
};

class tc_programs {
public:
  // Loads them. `interfaces` may bear those of a former kvbridged. Throws fatal: this kernel does not take them.
  tc_programs(const bridge_settings& settings, std::span<const int> interfaces);
  ~tc_programs();
  tc_programs(const tc_programs&) = delete;
  tc_programs& operator=(const tc_programs&) = delete;

  // How long the road stays open after the last beat: a death is seen within a second, and one who is merely kept from
  // the processor by a storm is not taken for dead too soon.
  static constexpr int64_t heart_stops_ns = 950'000'000;
  // Says that kvbridged lives, and whether an agent does.
  void beat(bool road_open);

  // The device that the members' frames go to from now on. 0 or an errno value.
  int helper_attach(int interface);
  // Whether the helper's programs are in their places.
  bool helper_attached(int interface) const;

  // Makes an interface a member, or changes its role. 0 or an errno value; then discovery of a member that has no
  // program goes its own way, but does not leave by an uplink that has.
  int member_attach(int interface, member_role role);
  bool member_attached(int interface, bool uplink) const;
  // Leaves the interface as it was found, but for programs of another bridge's; one that is gone is forgotten.
  void member_detach(int interface);
  // The same where a former kvbridged's programs are.
  void former_detach(int interface);
  kvb_counts counts(int interface) const;

private:
  int qdisc_make(int interface, uint32_t& role) const;
  void forget(int interface);

  std::string bridge_;
  std::vector<uint16_t> protocols_;  // that the members' programs look into
  std::unique_ptr<discovery_bpf, void (*)(discovery_bpf*)> loaded_;
  uint32_t helper_ = 0;  // interface index
};

}  // namespace kvbridged

#endif
