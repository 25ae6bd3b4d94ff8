// What a worker does about a pseudo device that goes away under it and may come back, or does not take its records.
#ifndef PPPOEIA_KERNEL_DEVICE_WATCH_H
#define PPPOEIA_KERNEL_DEVICE_WATCH_H

#include "pppoeia/kernel/kernel.h"

#include <chrono>
#include <cstdint>

struct pppoeia_bridge;

// Belongs to one worker, and is called without the bridge's lock. A device that is taken down and up again needs
// nothing of it; one that is deleted and made again under the same index is bound anew. When neither is so, the kernel
// modules are asked for all of it, as when the bridge was added: where they are played by a process, a new one has to
// hear it. The bridge keeps its configuration and counters meanwhile.
class device_watch {
public:
  // The device is there.
  explicit device_watch(pppoeia_bridge& bridge);

  // A receive has failed with `error` (an errno value). Logs a loss, once until the device is back.
  void failed(int error);
  // Records have come.
  void received() { lost_ = false; }
  // Nothing has come during a whole wait. Looks after the device now and then, and tries to get a lost one back.
  void waited();

private:
  void lose();
  bool restore(int control_file);
  void compare(int control_file) const;

  pppoeia_bridge& bridge_;
  int index_ = -1;
  bool lost_ = false;
  unsigned waits_ = 0;
};

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
