// PPPoE discovery (RFC 2516) and the vendor tag of TR-101 as numbers.
#ifndef PPPOEIA_FRAME_PPPOE_H
#define PPPOEIA_FRAME_PPPOE_H

#include <cstddef>
#include <cstdint>

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

}  // namespace pppoe

#endif
