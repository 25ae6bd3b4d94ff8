// The kernel's part in telling frames apart: discovery frames get a socket of their own, so that other traffic, however
// much of it, takes none of their room.
#ifndef PLATFORM_KVBRIDGED_DISCOVERY_FILTER_H
#define PLATFORM_KVBRIDGED_DISCOVERY_FILTER_H

#include "platform/kvbridged/frame.h"

#include <cstdint>
#include <linux/filter.h>
#include <vector>

namespace kvbridged {

// Classic BPF. Discovery frames have EtherType 0x8863 behind at most four tags of any type, the bridge's own or not;
// others are all the rest. Every frame passes exactly one of the two, those that end inside their tags as others.
//
// This is no verdict: the kernel takes the outer tag off a frame before the filter sees it, so a frame may have one tag
// more. classify() judges the whole frame, whichever socket it came by.
std::vector<sock_filter> discovery_filter(port_frames which, uint16_t stag_ethertype);

}  // namespace kvbridged

#endif
