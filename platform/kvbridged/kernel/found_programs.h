// The programs that a kvbridged, alive or dead, has at an interface, and what their maps tell.
#ifndef PLATFORM_KVBRIDGED_KERNEL_FOUND_PROGRAMS_H
#define PLATFORM_KVBRIDGED_KERNEL_FOUND_PROGRAMS_H

#include "base/descriptor.h"
#include "platform/kvbridged/kernel/bpf/maps.h"

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

namespace kvbridged {

// The clock that the programs in the kernel read.
inline uint64_t monotonic_ns()
{
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000u + static_cast<uint64_t>(now.tv_nsec);
}

class found_programs {
public:
  // Those at a member's ingress; nothing when there are none, or none that this kvbridged understands.
  static std::optional<found_programs> at(int interface);

  // The bridge that they serve.
  std::string bridge() const;
  // Whether an agent treats its discovery frames at this moment.
  bool road_open() const;
  // The member's role, nothing for an interface that is none.
  std::optional<uint32_t> role(int interface) const;
  kvb_counts counts(int interface) const;

  // The maps' descriptors.
  int roles_map() const { return roles_.get(); }
  int counts_map() const { return counts_.get(); }

private:
  found_programs() = default;

  kvb_control control() const;

  descriptor control_;
  descriptor roles_;
  descriptor counts_;
};

}  // namespace kvbridged

#endif
