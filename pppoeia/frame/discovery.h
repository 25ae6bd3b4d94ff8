// A record taken apart: header fields, VLAN tags and PPPoE header, as offsets and numbers. What a short record lacks
// reads as zero.
#ifndef PPPOEIA_FRAME_DISCOVERY_H
#define PPPOEIA_FRAME_DISCOVERY_H

#include "base/packed.h"
#include "pppoeia/frame/tags.h"

#include <cstddef>
#include <cstdint>

struct vlan_tags {
  uint16_t tci;      // of the outermost tag
  unsigned count;    // tags recognised, 0 to 3
  size_t ethertype;  // offset of the EtherType field behind them

  uint16_t vid() const { return tci & 0x0fff; }  // 0 for an untagged frame
};

// Recognises the bridge's S-Tag or a C-Tag and at most two C-Tags behind it (one behind an outermost C-Tag).
vlan_tags vlan_tags_parse(const_bytes record, uint16_t stag_ethertype);

// The PPPoE header behind the EtherType field at `ethertype`.
struct discovery {
  size_t ethertype;
  uint8_t version;
  uint8_t type;
  uint8_t code;
  uint16_t session_id;
  uint16_t payload_length;

  size_t first_tag() const { return ethertype + pppoe::tags; }
  size_t end() const { return first_tag() + payload_length; }
};

discovery discovery_parse(const_bytes record, size_t ethertype);

#endif
