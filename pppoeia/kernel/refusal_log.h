// What a worker says about records that its pseudo device does not take.
#ifndef PPPOEIA_KERNEL_REFUSAL_LOG_H
#define PPPOEIA_KERNEL_REFUSAL_LOG_H

#include "pppoeia/kernel/kernel.h"

#include <chrono>
#include <cstdint>

struct pppoeia_bridge;

// Counts refused records and says so in two lines an outage: the first refusal with its reason, and how many there were
// when records go again. A device that refuses some and takes others, as one with a full queue or one line's longest
// frames, would fill the log by turns: what goes again is told `quiet` after the refusal at the earliest, and until
// then further ones are only counted. Belongs to one worker; costs a comparison while nothing is refused.
class refusal_log {
public:
  explicit refusal_log(const pppoeia_bridge& bridge, std::chrono::seconds quiet = std::chrono::seconds(60))
      : bridge_(bridge), quiet_(quiet)
  {}

  // What became of a batch of records that was sent.
  void sent(const send_refusals& refusals)
  {
    if (refusals.count > 0)
      refused(refusals);
    else if (count_ > 0)
      taken();
  }

private:
  using clock = std::chrono::steady_clock;

  void refused(const send_refusals& refusals);
  void taken();

  const pppoeia_bridge& bridge_;
  std::chrono::seconds quiet_;
  clock::time_point told_at_{};
  uint64_t count_ = 0;  // since the first refusal that was told
};

#endif
