// The frame path: what becomes of one record that the kernel bridge diverted. No socket, no lock, no clock: the
// worker does the waiting, receiving, locking and sending.
//
//   record (kernel header + Ethernet frame)
//     -> parse      VLAN tags, PPPoE header, tags
//     -> rules      port known?  VLAN enabled?  discovery frame that fits?  port's role?  vendor tag allowed?
//     -> counted
//     -> edit       PADO, PADS: vendor tag removed or kept    PADI, PADR: inserted or replaced, or an error answer
//     -> record to send back, or dropped
#ifndef PPPOEIA_FRAME_PATH_H
#define PPPOEIA_FRAME_PATH_H

#include "pppoeia/frame/fate.h"

#include <cstddef>
#include <cstdint>
#include <vector>

struct pppoeia_bridge;
struct pppoeia_port;

// One received record, edited in place. Bytes from `received` to `capacity` are zero; there are at least
// frame_growth_max of them, and the capacity is at least frame_capacity_min.
struct frame_record {
  unsigned char* data;
  uint32_t received;
  uint32_t capacity;
};

inline constexpr uint32_t frame_capacity_min = 256;

// Room for the longest text: the ATM default is not cut.
inline constexpr size_t identifier_text_size = 160;

// An Agent Circuit ID or Agent Remote ID on its way into a tag.
struct identifier {
  char text[identifier_text_size];
  std::vector<unsigned char> bin;  // a byte identifier; empty when the text is the identifier
};

// Fills identifiers for a port and VLAN id. Comes with `id.text` and `id.bin` empty, may leave them so.
class identifier_source {
public:
  virtual ~identifier_source() = default;
  virtual void circuit_id(pppoeia_bridge& bridge, pppoeia_port& port, uint16_t vid, identifier& id) = 0;
  virtual void remote_id(pppoeia_bridge& bridge, pppoeia_port& port, uint16_t vid, identifier& id) = 0;
};

// What the frame path needs beside the records.
struct frame_services {
  identifier_source& identifiers;
  int (*local_mac)(unsigned char mac[6]);  // 0, or -1 when the agent's own address cannot be had
  identifier circuit_id{};                 // work space, kept from frame to frame for its memory
  identifier remote_id{};
};

// What became of one record. Offsets are from its first byte; 0 for what the frame did not come to.
struct frame_result {
  uint32_t length = 0;  // bytes to send back, from the first; 0 when it is dropped
  fate what = fate::record_length;
  uint8_t code = 0;            // PPPoE code
  bool of_subscriber = false;  // no server is behind the input port, or PPPoE is disabled there
  uint16_t port = 0;           // input port as the kernel named it, whether there is one or not
  uint16_t vid = 0;            // of the outermost VLAN tag
  uint32_t ethertype = 0;      // of the discovery frame's EtherType field, once it is known to fit
  uint32_t vendor_tag = 0;     // of the vendor tag that was put in
};

// Processes one record. The bridge's mutex is held. Counts the frame in the bridge and the input port.
frame_result frame_process(pppoeia_bridge& bridge, const frame_record& record, frame_services& services);

#endif
