#include "pppoeia/frame/frame_log.h"

#include "platform/kvbridge/record_header.h"
#include "pppoeia/frame/frame.h"
#include "pppoeia/log.h"
#include "pppoeia/records.h"

#include <algorithm>
#include <cstdio>

namespace {

const char* code_name(uint8_t code)
{
  switch (code) {
  case pppoe::padi:
    return "PADI";
  case pppoe::pado:
    return "PADO";
  case pppoe::padr:
    return "PADR";
  case pppoe::pads:
    return "PADS";
  case pppoe::padt:
    return "PADT";
  default:
    return "Unknown";
  }
}

}  // namespace

int frame_logged_size(uint32_t record_length)
{
  return static_cast<int>(record_length - pppoeia_frame_adjust.load(std::memory_order_relaxed));
}

void frame_log_received(const pppoeia_bridge& bridge, const_bytes record, uint32_t record_length)
{
  const unsigned char* to = record.data() + kernel_header::size;
  const unsigned char* from = to + 6;
  pppoeia_log(log_debug,
              "<%s> >> @%.16s (%02x:%02x:%02x:%02x:%02x:%02x <-- %02x:%02x:%02x:%02x:%02x:%02x/%04x:%04x), %d bytes.",
              bridge.name, reinterpret_cast<const char*>(record.data() + kernel_header::input_device), to[0], to[1],
              to[2], to[3], to[4], to[5], from[0], from[1], from[2], from[3], from[4], from[5],
              be16_at(record, kernel_header::vlan_word), be16_at(record, kernel_header::cvlan_word),
              frame_logged_size(record_length));
}

void pppoeia_frame_dump(const pppoeia_bridge& bridge, const_bytes record, uint32_t record_length, const char* prefix)
{
  constexpr size_t per_line = 16;
  const int size = frame_logged_size(record_length);
  if (size <= 0)
    return;
  const size_t end = std::min(record.size(), kernel_header::size + static_cast<size_t>(size));
  char line[per_line * 3 + 3];
  size_t used = 0;
  size_t in_line = 0;
  for (size_t at = kernel_header::size; at < end; ++at) {
    used += static_cast<size_t>(
        std::snprintf(line + used, sizeof line - used, "%02x ", at < record_length ? record[at] : 0));
    ++in_line;
    if (in_line == per_line / 2)
      used += static_cast<size_t>(std::snprintf(line + used, sizeof line - used, "  "));
    if (in_line == per_line || at + 1 == end) {
      pppoeia_log(log_debug, "<%s> %s %s", bridge.name, prefix, line);
      used = in_line = 0;
    }
  }
}

void frame_log_vlan_tags(const pppoeia_bridge& bridge, const vlan_tags& tags)
{
  if (tags.count > 0)
    pppoeia_log(log_debug, "<%s> >> Found VLAN tag %04x (VID %d).", bridge.name, tags.tci, tags.vid());
  for (unsigned further = 1; further < tags.count; ++further)
    pppoeia_log(log_debug, "<%s> >> Found VLAN tag.", bridge.name);
}

void frame_log_discovery(const pppoeia_bridge& bridge, const_bytes record, const discovery& pppoe)
{
  const auto at = [&](size_t offset) { return static_cast<const void*>(record.data() + offset); };
  pppoeia_log(log_debug,
              "<%s>    PPPoE starts at offset %d, version=%d, type=%d, code=%s (%d), session_id=0x%04x, "
              "payload_length=%d",
              bridge.name, static_cast<int>(pppoe.ethertype + pppoe::version_type - kernel_header::size), pppoe.version,
              pppoe.type, code_name(pppoe.code), pppoe.code, pppoe.session_id, pppoe.payload_length);
  pppoeia_log(log_debug, "<%s>    Frame start=%p, frame end=%p, PPPoE start=%p, PPPoE end=%p", bridge.name,
              at(kernel_header::size), static_cast<const void*>(bridge.frame_end),
              at(pppoe.ethertype + pppoe::version_type), at(pppoe.end()));
}
