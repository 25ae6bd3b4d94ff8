// The records that travel in arguments of management requests. All numbers are little-endian, as the hosts are.
#ifndef PPPOEIA_API_RECORDS_H
#define PPPOEIA_API_RECORDS_H

#include <cstdint>

// Nine counters of discovery frames, counted by the worker for the bridge and the input port together. Read whole by
// pppoeia_bridge_stats_get() and pppoeia_port_stats_get(), in this order.
struct pppoeia_stats {
  uint32_t padi;
  uint32_t padr;
  uint32_t pado;
  uint32_t pads;
  uint32_t padt;
  uint32_t dropped;       // refused by the port's role, or for a vendor tag from an untrusted port
  uint32_t unknown_code;  // accepted, of any other code
  uint32_t malformed;     // PPPoE PDU longer than the frame
  uint32_t unchanged;     // forwarded as received, PPPoE being disabled on the port
};
static_assert(sizeof(pppoeia_stats) == 36);

// Where a line ends physically. Travels in management requests as 28 bytes, little-endian.
struct pppoeia_location {
  uint32_t panel_kind;  // 0 and 1 are kinds with a panel text
  char panel[8];        // NUL-padded, not terminated when full
  uint32_t onu;         // ONU number of an "onu" or "gem" port
  uint32_t gem;         // GEM port number of a "gem" port
  uint32_t pvc_intf;    // PVC interface number of an "atm" port
  uint32_t reserved;    // kept as given
};
static_assert(sizeof(pppoeia_location) == 28);

// What a port is when it is added. Travels as six 64-bit words, little-endian.
struct pppoeia_port_info {
  uint32_t parent_id;
  char type[12];  // "eth", "atm", "onu", "gem", or any text; at most 10 characters count
  uint32_t kind;
  pppoeia_location location;
};
static_assert(sizeof(pppoeia_port_info) == 48);

// What pppoeia_port_name_update() replaces beside the name. Travels as three 64-bit words and one 32-bit word.
struct pppoeia_name_update {
  pppoeia_location location;
};
static_assert(sizeof(pppoeia_name_update) == 28);

// One entry of a port's VLAN list as ids 64 to 66 return it: 266 bytes without padding, little-endian.
struct __attribute__((packed)) pppoeia_port_vlan_entry {
  uint32_t vlan_id;  // pppoeia_port_vlan_get_first() writes the low two bytes only
  int32_t cid_mode;
  char cid_format[129];
  char rid_format[129];
};
static_assert(sizeof(pppoeia_port_vlan_entry) == 266);

#endif
