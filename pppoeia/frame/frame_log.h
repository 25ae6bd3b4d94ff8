// The debug log of one frame, in the order in which the frame path takes its steps. Callers test the level first: none
// of this runs while debug is off.
#ifndef PPPOEIA_FRAME_FRAME_LOG_H
#define PPPOEIA_FRAME_FRAME_LOG_H

#include "base/packed.h"
#include "pppoeia/frame/discovery.h"

#include <cstdint>

struct pppoeia_bridge;

// Bytes of the Ethernet frame as logged: one more than there are.
int frame_logged_size(uint32_t record_length);

// Devices, addresses, header words and size of a record.
void frame_log_received(const pppoeia_bridge& bridge, const_bytes record, uint32_t record_length);

// Hexadecimal dump of the frame, 16 bytes a line, each line behind `prefix`. The size that is
// logged counts one byte past the record's end: it is dumped as zero.
void pppoeia_frame_dump(const pppoeia_bridge& bridge, const_bytes record, uint32_t record_length, const char* prefix);

void frame_log_vlan_tags(const pppoeia_bridge& bridge, const vlan_tags& tags);

void frame_log_discovery(const pppoeia_bridge& bridge, const_bytes record, const discovery& pppoe);

#endif
