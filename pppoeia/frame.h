// The frame path: what becomes of one record that the kernel bridge diverted. No socket, no lock, no clock: the
// worker does the waiting, receiving, locking and sending.
//
//   record (kernel header + Ethernet frame)
//     -> bridge on?  port known?  VLAN enabled?  discovery frame that fits?  port's role?  vendor tag allowed?
//     -> counted
//     -> PADO, PADS: vendor tag removed or kept      PADI, PADR: vendor tag inserted or replaced, or an error answer
//     -> record to send back, or dropped
#ifndef PPPOEIA_FRAME_H
#define PPPOEIA_FRAME_H

#include "pppoeia/identifier.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

struct pppoeia_bridge;

// Bytes in front of the frame as the management plane counts them: taken from a record's length for the size that is
// logged, added to the MTU for the receive buffer. 0 until the first bridge is added, 106 from then on.
extern std::atomic<uint32_t> pppoeia_frame_adjust;

// One received record, edited in place. Bytes from `received` to `capacity` are zero; there are at least
// frame_growth_max of them, and the capacity is at least frame_capacity_min.
struct frame_record {
  unsigned char* data;
  uint32_t received;
  uint32_t capacity;
};

inline constexpr uint32_t frame_capacity_min = 256;

// What the frame path needs beside the records.
struct frame_services {
  identifier_source& identifiers;
  int (*local_mac)(unsigned char mac[6]);  // 0, or -1 when the agent's own address cannot be had
  identifier circuit_id{};                 // work space, kept from frame to frame for its memory
  identifier remote_id{};
};

// Processes one record. The number of bytes to send back, from the record's first, or 0 when it is dropped. The
// bridge's mutex is held. Counts the frame in the bridge and the input port.
uint32_t frame_process(pppoeia_bridge& bridge, const frame_record& record, frame_services& services);

#endif
