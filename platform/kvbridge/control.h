// The control files of the node's kernel modules `kvmng` (management) and `kvbridge` (bridge), the requests they answer
// and the records these carry. Numbers in records are in host order.
#ifndef PLATFORM_KVBRIDGE_CONTROL_H
#define PLATFORM_KVBRIDGE_CONTROL_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

inline constexpr char kvmng_path[] = "/proc/net/mng/config";
inline constexpr char kvbridge_path[] = "/proc/net/kvbridge/config";

// The control file of one bridge.
[[gnu::cold]] inline std::string kvbridge_bridge_path(std::string_view bridge)
{
  return "/proc/net/kvbridge/" + std::string(bridge) + "/bridge";
}

inline constexpr int32_t kvmng_version_expected = 3;
inline constexpr int32_t kvbridge_version_expected = 56;

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
  char filter[17];  // pppoe_filter
  char device[17];
};
static_assert(sizeof(kvbridge_filter) == 34);

inline constexpr char pppoe_filter[] = "pppoe";

// Of a network device, its NUL included.
inline constexpr size_t device_name_size = 16;

// What the pseudo device of a bridge is called: "<bridge>_pppoe", cut to 15 characters.
[[gnu::cold]] inline std::string pseudo_device_name(std::string_view bridge)
{
  constexpr size_t most = device_name_size - 1;
  std::string name(bridge.substr(0, most));
  return name += std::string_view("_pppoe").substr(0, most - name.size());
}

#endif
