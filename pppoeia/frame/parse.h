// A diverted record taken apart, once and whole, before anything is decided: VLAN tags, PPPoE header, tags. Knows no
// bridge and no log. What a short record lacks reads as zero.
#ifndef PPPOEIA_FRAME_PARSE_H
#define PPPOEIA_FRAME_PARSE_H

#include "base/packed.h"

#include <cstddef>
#include <cstdint>

// PPPoE discovery (RFC 2516) and the vendor tag of TR-101 as numbers.
namespace pppoe {

inline constexpr uint16_t ethertype_discovery = 0x8863;
inline constexpr uint16_t ethertype_ctag = 0x8100;

enum code : uint8_t { padi = 0x09, pado = 0x07, padr = 0x19, pads = 0x65, padt = 0xa7 };

// Offsets from the EtherType field.
inline constexpr size_t version_type = 2;
inline constexpr size_t code_offset = 3;
inline constexpr size_t session_id = 4;
inline constexpr size_t payload_length = 6;
inline constexpr size_t tags = 8;

inline constexpr size_t tag_header = 4;  // type and length, network order

enum tag : uint16_t {
  tag_end_of_list = 0x0000,
  tag_service_name = 0x0101,
  tag_ac_name = 0x0102,
  tag_host_uniq = 0x0103,
  tag_ac_cookie = 0x0104,
  tag_vendor = 0x0105,
  tag_relay_session_id = 0x0110,
  tag_service_error = 0x0201,
  tag_system_error = 0x0202,
  tag_generic_error = 0x0203,
};

inline constexpr uint32_t vendor_id = 3561;  // Broadband Forum; TR-101 sub-options follow it in the vendor tag
inline constexpr uint8_t agent_circuit_id = 1;
inline constexpr uint8_t agent_remote_id = 2;
inline constexpr size_t identifier_max = 63;

// A client sends PADI and PADR, a server PADO and PADS; PADT comes from either.
constexpr bool client_code(uint8_t code)
{
  return code == padi || code == padr;
}

constexpr bool server_code(uint8_t code)
{
  return code == pado || code == pads;
}

}  // namespace pppoe

struct vlan_tags {
  uint16_t tci;      // of the outermost tag
  unsigned count;    // tags recognised, 0 to 3
  size_t ethertype;  // offset of the EtherType field behind them

  uint16_t vid() const { return tci & 0x0fff; }  // 0 for an untagged frame
};

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

inline constexpr size_t no_tag = ~size_t{0};

// The tags of one discovery frame in a bounded view of its record: what the PPPoE header claims (from the first tag to
// the PPPoE end), inside what was received. Offsets are from the record's first byte.
struct tag_area {
  const_bytes record;
  size_t first;  // where the first tag begins
  size_t end;    // the PPPoE end; never before `first`

  bool header_inside(size_t tag) const { return tag + pppoe::tag_header <= record.size(); }
  uint16_t type(size_t tag) const { return be16_at(record, tag); }
  uint16_t length(size_t tag) const { return be16_at(record, tag + 2); }
  [[gnu::always_inline]] size_t next(size_t tag) const { return tag + pppoe::tag_header + length(tag); }
  // True when the tag is there and ends within the PPPoE end.
  bool fits(size_t tag) const { return header_inside(tag) && next(tag) <= end; }

  // The walk. A tag is stepped to only when its own end lies within the PPPoE end. Nothing steps to the first tag, so
  // it is looked at whatever length it claims; only an empty payload has none.
  size_t begin() const { return first < end ? first : no_tag; }
  [[gnu::always_inline]] size_t behind(size_t tag) const
  {
    return type(tag) == pppoe::tag_end_of_list || !fits(next(tag)) ? no_tag : next(tag);
  }
};

struct parsed_frame {
  const_bytes record;  // what was received
  vlan_tags vlan{};
  uint16_t ethertype = 0;  // behind the VLAN tags

  // Of a discovery frame.
  discovery pppoe{};

  // Of a discovery frame whose payload ends within the record.
  bool fits = false;
  size_t vendor_tag = no_tag;  // the first. Its header is inside the record; its end may be anywhere
  size_t last_tag = 0;         // the last that the walk comes to; the first tag's place when there is none

  tag_area tags() const { return {record, pppoe.first_tag(), pppoe.end()}; }
};

// Takes a record apart on a bridge whose S-Tag has that EtherType. Recognised are the bridge's S-Tag or a C-Tag, and at
// most two C-Tags behind it (one behind an outermost C-Tag).
parsed_frame frame_parse(const_bytes record, uint16_t stag_ethertype);

#endif
