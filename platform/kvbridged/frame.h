// An Ethernet frame as bytes: its addresses, and what its VLAN tags lead to.
#ifndef PLATFORM_KVBRIDGED_FRAME_H
#define PLATFORM_KVBRIDGED_FRAME_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace kvbridged {

using frame_view = std::span<const unsigned char>;
using frame_bytes = std::vector<unsigned char>;
using mac_address = std::array<unsigned char, 6>;

inline constexpr size_t ethernet_header = 14;
inline constexpr size_t ethertype_offset = 12;  // of a frame without tags
inline constexpr size_t tag_size = 4;
inline constexpr size_t tags_most = 4;  // a frame with more belongs to nobody
inline constexpr uint16_t discovery_ethertype = 0x8863;
inline constexpr uint16_t ctag_ethertype = 0x8100;

// Addresses of a frame, which must have its 14 bytes of header.
mac_address destination_of(frame_view frame);
mac_address source_of(frame_view frame);
bool is_group(const mac_address& address);

// The 16 bits at `offset`, 0 where the frame ends before.
uint16_t word_at(frame_view frame, size_t offset);

// What EtherTypes stand in front of a VLAN tag. The first three are this bridge's own; equipment in the field uses the
// others as well.
inline constexpr size_t own_tag_types = 3;
using tag_type_list = std::array<uint16_t, 6>;
constexpr tag_type_list tag_types(uint16_t stag_ethertype)
{
  return {ctag_ethertype, 0x88a8, stag_ethertype, 0x9100, 0x9200, 0x9300};
}

enum class frame_kind {
  discovery,  // PPPoE discovery behind at most four tags of the bridge's own
  hidden,  // tags that do not end within four or within the frame, or discovery behind a tag that is not the bridge's,
           // an LLC and SNAP header among them
  other,
};

// Which frames a port's socket is for.
enum class port_frames { discovery, others };

struct frame_class {
  frame_kind kind;
  size_t ethertype;  // offset of the EtherType behind the tags
};

// A frame with its 14 bytes of header, all tags in their places.
frame_class classify(frame_view frame, uint16_t stag_ethertype);

// The answer to a client whose PADI or PADR is too large for the agent: the agent's own error answer, a PADO or PADS
// with nothing but a Generic-Error tag behind the request's VLAN tags, from `source` to the client, as short as
// Ethernet allows. Nothing for any other discovery frame, a broken one, or one without a client.
std::optional<frame_bytes> error_answer(frame_view request, size_t ethertype, const mac_address& source);

}  // namespace kvbridged

#endif
