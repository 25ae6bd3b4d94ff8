// What the programs in the kernel and kvbridged share. Plain C, for both compilers.
#ifndef PLATFORM_KVBRIDGED_KERNEL_BPF_MAPS_H
#define PLATFORM_KVBRIDGED_KERNEL_BPF_MAPS_H

#include <linux/bpf.h>

// Map kvb_control, one entry. Written by kvbridged alone.
struct kvb_control {
  __u64 alive_until;  // ns of the monotonic clock; kvbridged is dead when it is over
  __u32 road_open;    // an agent has its filter attached
  __u32 helper;       // interface index of the helper device
  char bridge[16];    // for whoever finds the programs
};

// Map kvb_roles, by interface index: flags, and the port number in the upper half. Without a number the agent cannot
// know the port, and its road is down. Written by kvbridged alone; whoever is not in it gets nothing through.
enum {
  kvb_uplink = 1,       // else a subscriber's
  kvb_qdisc_found = 2,  // the clsact qdisc was there before kvbridged
};
#define KVB_PORT_SHIFT 16

// Map kvb_counts, by interface index. Written by the programs.
struct kvb_counts {
  struct bpf_spin_lock lock;  // of padi_due
  __u32 reserved;
  __u64 padi_due;         // ns: when the bucket is full again
  __u64 captured;         // taken out of the bridge, for the agent
  __u64 given_back;       // put in again, or answered
  __u64 refused_by_rate;  // PADI over the rate
  __u64 stopped;          // discovery while the road is down, mode closed
  __u64 passed;           // discovery while the road is down, mode open
  __u64 hidden;           // tags behind which anything could be
  __u64 untreated;        // at an uplink's exit, without having been at the agent
};

// A frame's mark says that it is on this road: the member where it came in, and whether it leaves there.
#define KVB_MARK_LEAVES 0x80000000u

#endif
