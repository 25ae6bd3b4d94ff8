#include "pppoeia/frame/frame_log.h"

#include "platform/kvbridge/record_header.h"
#include "pppoeia/log.h"

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

// Bytes of the Ethernet frame as logged: one more than there are.
int logged_size(uint32_t record_length)
{
  return static_cast<int>(record_length - pppoeia_frame_adjust.load(std::memory_order_relaxed));
}

}  // namespace

const char* pppoeia_tag_name(uint16_t type)
{
  switch (type) {
  case pppoe::tag_end_of_list:
    return "EOL";
  case pppoe::tag_service_name:
    return "SRV_NAME";
  case pppoe::tag_ac_name:
    return "AC_NAME";
  case pppoe::tag_host_uniq:
    return "HOST_UNIQ";
  case pppoe::tag_ac_cookie:
    return "AC_COOKIE";
  case pppoe::tag_vendor:
    return "VENDOR";
  case pppoe::tag_relay_session_id:
    return "RELAY_SID";
  case pppoe::tag_service_error:
    return "SRV_ERR";
  case pppoe::tag_system_error:
    return "SYS_ERR";
  case pppoe::tag_generic_error:
    return "GEN_ERR";
  default:
    return "Unknown";
  }
}

void pppoeia_frame_dump(const pppoeia_bridge& bridge, const_bytes record, uint32_t record_length, const char* prefix)
{
  constexpr size_t per_line = 16;
  const int size = logged_size(record_length);
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

void frame_log::judged(const pppoeia_port* port, fate reason) const
{
  const char* const device = name_at(kernel_header::input_device);
  received();
  if (reason == fate::unknown_port)
    return pppoeia_log(log_debug, "<%s> >> Input device '%.16s', %d not found.", bridge.name, device,
                       host_at<uint16_t>(record, kernel_header::input_port));
  vlan();
  if (takes_every_vlan(*port))
    pppoeia_log(log_debug, "<%s> >> Skip VLAN check for interface: %d.", bridge.name, static_cast<int>(port->port_id));
  const int vid = frame.vlan.vid();
  if (reason == fate::vlan_not_enabled)
    return pppoeia_log(log_debug, "<%s> >> VID %04x (%d) not enabled.", bridge.name, static_cast<unsigned>(vid), vid);
  if (reason == fate::not_discovery)
    return pppoeia_log(log_debug, "<%s> >> 0x%04x is not an PPPoE Discovery EtherType.", bridge.name, frame.ethertype);
  discovery_header();
  if (reason == fate::payload_past_end)
    return ended(reason);
  tags(frame.tags());
  if (reason == fate::port_disabled)
    return pppoeia_log(log_debug, "<%s> >> PPPoE is disabled on '%.16s'. Forwarding unchanged.", bridge.name, device);
  if (reason == fate::role)
    return role_refused(*port);
  vendor_tag_found(reason);
}

void frame_log::received() const
{
  const unsigned char* to = record.data() + kernel_header::size;
  const unsigned char* from = to + 6;
  const auto length = static_cast<uint32_t>(frame.record.size());
  pppoeia_log(log_debug,
              "<%s> >> @%.16s (%02x:%02x:%02x:%02x:%02x:%02x <-- %02x:%02x:%02x:%02x:%02x:%02x/%04x:%04x), %d bytes.",
              bridge.name, name_at(kernel_header::input_device), to[0], to[1], to[2], to[3], to[4], to[5], from[0],
              from[1], from[2], from[3], from[4], from[5], be16_at(record, kernel_header::vlan_word),
              be16_at(record, kernel_header::cvlan_word), logged_size(length));
  pppoeia_frame_dump(bridge, record, length, ">>  ");
}

void frame_log::vlan() const
{
  if (frame.vlan.count > 0)
    pppoeia_log(log_debug, "<%s> >> Found VLAN tag %04x (VID %d).", bridge.name, frame.vlan.tci, frame.vlan.vid());
  for (unsigned further = 1; further < frame.vlan.count; ++further)
    pppoeia_log(log_debug, "<%s> >> Found VLAN tag.", bridge.name);
}

void frame_log::discovery_header() const
{
  const discovery& pppoe = frame.pppoe;
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

void frame_log::tags(const tag_area& area) const
{
  if (area.begin() == no_tag)
    past_end(area.first, area.end);
  for (size_t tag = area.begin(); tag != no_tag; tag = area.behind(tag)) {
    const int length = area.length(tag);
    pppoeia_log(log_debug, "<%s>        %s (0x%04x), %d (0x%04x) bytes.", bridge.name, pppoeia_tag_name(area.type(tag)),
                area.type(tag), length, static_cast<unsigned>(length));
  }
}

void frame_log::past_end(size_t tag, size_t end) const
{
  pppoeia_log(log_debug, "<%s>          Past PPPoE end: %p >= %p", bridge.name,
              static_cast<const void*>(record.data() + tag), static_cast<const void*>(record.data() + end));
}

void frame_log::role_refused(const pppoeia_port& port) const
{
  pppoeia_log(log_debug, "<%s> >> Only PPPoE %s is allowed on '%.16s'.", bridge.name,
              port.state == 1 ? "client" : "server", name_at(kernel_header::input_device));
}

void frame_log::vendor_tag_found(fate reason) const
{
  if (frame.vendor_tag != no_tag)
    pppoeia_log(log_debug, "<%s>    Found VSA tag.", bridge.name);
  else if (frame.tags().begin() == no_tag)
    past_end(frame.pppoe.first_tag(), frame.pppoe.end());
  if (reason == fate::tag_untrusted)
    pppoeia_log(log_debug, "<%s>    Port is untrusted, there should be no VSA tag.", bridge.name);
}

void frame_log::bytes_used(const char* which) const
{
  pppoeia_log(log_debug, "<%s>    Using %s bin.", bridge.name, which);
}

void frame_log::insertion_planned(const insertion& plan, bool replaces) const
{
  const int by = static_cast<int>(plan.delta);
  if (!replaces && frame.tags().begin() == no_tag)
    past_end(frame.pppoe.first_tag(), frame.pppoe.end());
  pppoeia_log(log_debug, "<%s>    VSA tag will be added.", bridge.name);
  if (by > 0)
    pppoeia_log(log_debug, "<%s>    VSA tag stretched by %d bytes.", bridge.name, by);
  else if (by < 0)
    pppoeia_log(log_debug, "<%s>    VSA tag cut by %d bytes.", bridge.name, -by);
  else
    pppoeia_log(log_debug, "<%s>    VSA tag size fits.", bridge.name);
  if (plan.place >= frame.pppoe.end())
    past_end(plan.place, frame.pppoe.end());
}

void frame_log::inserted(const vendor_tag& tag, const char* circuit_id, const char* remote_id) const
{
  if (tag.circuit_id)
    pppoeia_log(log_debug, "<%s>    Added Circuit ID '%s' (%d bytes).", bridge.name, circuit_id,
                static_cast<int>(tag.circuit_id->size()));
  if (tag.remote_id)
    pppoeia_log(log_debug, "<%s>    Added Remote Agent ID '%s' (%d bytes).", bridge.name, remote_id,
                static_cast<int>(tag.remote_id->size()));
}

void frame_log::too_large() const
{
  pppoeia_log(log_debug, "<%s>    MTU exceeded.", bridge.name);
}

void frame_log_no_address(const pppoeia_bridge& bridge)
{
  pppoeia_log(log_error, "<%s>    Error getting local MAC.", bridge.name);
}

void frame_log::ended(fate what) const
{
  if (what == fate::payload_past_end || what == fate::removal_misfit || what == fate::insertion_misfit)
    pppoeia_log(log_debug, "<%s>    PPPoE PDU doesn't fit into frame.", bridge.name);
  else if (what == fate::tag_absent)
    pppoeia_log(log_debug, "<%s>    No VSA tag to remove.", bridge.name);
  else if (what == fate::tag_kept)
    pppoeia_log(log_debug, "<%s>    VSA tag kept.", bridge.name);
  else if (what == fate::tag_removed)
    pppoeia_log(log_debug, "<%s>    Removed VSA tag.", bridge.name);
}

void frame_log::forwarded() const
{
  const frame_lengths lengths = lengths_of(record, frame.pppoe);
  pppoeia_log(log_debug, "<%s>    Frame is %d bytes, payload length %d bytes.", bridge.name,
              logged_size(lengths.record), lengths.payload);
  pppoeia_frame_dump(bridge, record, lengths.record, "    ");
  pppoeia_log(log_debug, "<%s>    Forwarding frame to %.16s.", bridge.name, name_at(kernel_header::output_device));
  const size_t first = frame.pppoe.first_tag();
  tags({record.first(lengths.record), first, first + lengths.payload});
}
