// Control files of the node's kernel modules `kvmng` (management) and `kvbridge` (bridge), the requests they answer
// and the records these carry. Numbers in records are in host order.
#ifndef PPPOEIA_KERNEL_KERNEL_CONTROL_H
#define PPPOEIA_KERNEL_KERNEL_CONTROL_H

#include <cstdint>

inline constexpr char kvmng_path[] = "/proc/net/mng/config";
inline constexpr char kvbridge_path[] = "/proc/net/kvbridge/config";
inline constexpr char kvbridge_bridge_path[] = "/proc/net/kvbridge/%s/%s";  // bridge name, "bridge"

inline constexpr int kvmng_version_expected = 3;
inline constexpr int kvbridge_version_expected = 56;

// The codes are fixed, the 4 bytes of size in them included, whatever the argument really is.
enum kernel_request : unsigned long {
  kvmng_version_get = 0x80046d02,       // int32_t, written by the module
  kvmng_device_create = 0x40046d00,     // NUL-terminated device name
  kvmng_device_delete = 0x40046d01,     // NUL-terminated device name
  kvbridge_version_get = 0x80047a05,    // int32_t, written by the module
  kvbridge_info_get = 0x80047a06,       // kvbridge_info, written by the module
  kvbridge_filter_attach = 0x40047ac8,  // kvbridge_filter
};

struct kvbridge_info {
  uint16_t stag_ethertype;
  uint16_t other;  // of no interest here
};
static_assert(sizeof(kvbridge_info) == 4);

// Diverts the bridge's discovery frames to a device.
struct kvbridge_filter {
  char filter[17];  // "pppoe"
  char device[17];
};
static_assert(sizeof(kvbridge_filter) == 34);

#endif
