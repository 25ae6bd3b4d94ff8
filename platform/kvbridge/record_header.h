// What the kernel bridge puts in front of each diverted frame: 107 bytes in host order, unless said otherwise. The
// agent rewrites some of them, and the kernel forwards the frame by them when it is sent back.
#ifndef PLATFORM_KVBRIDGE_RECORD_HEADER_H
#define PLATFORM_KVBRIDGE_RECORD_HEADER_H

#include <cstddef>
#include <cstdint>

// VLAN id that stands for no particular VLAN; as a customer VLAN word: there is none.
inline constexpr uint16_t vid_none = 4095;

namespace kernel_header {

inline constexpr size_t vlan_word = 4;       // u16, network order: VLAN tag control word as the kernel saw it
inline constexpr size_t cvlan_word = 6;      // u16, network order: customer VLAN tag control word, or vid_none
inline constexpr size_t record_length = 48;  // u32: bytes of the whole record, this header included
inline constexpr size_t input_port = 52;     // u16: port id
inline constexpr size_t input_device = 74;   // 16 bytes, NUL-terminated
inline constexpr size_t output_device = 90;  // 16 bytes, NUL-terminated
inline constexpr size_t device_size = 16;
inline constexpr size_t size = 107;  // the Ethernet frame begins here

}  // namespace kernel_header

#endif
