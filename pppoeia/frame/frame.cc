#include "pppoeia/frame/frame.h"

#include "pppoeia/frame/frame_log.h"
#include "pppoeia/frame/passage.h"
#include "pppoeia/frame/vsa.h"

#include <optional>

std::atomic<uint32_t> pppoeia_frame_adjust{0};

namespace {

// Keeps header words and client for identifiers; the words also for queries that the management thread makes meanwhile.
void frame_keep(pppoeia_bridge& bridge, const_bytes record)
{
  const uint32_t words = static_cast<uint32_t>(be16_at(record, kernel_header::vlan_word)) << 16 |
                         be16_at(record, kernel_header::cvlan_word);
  uint64_t mac = 0;
  for (size_t i = 0; i < 6; ++i)
    mac = mac << 8 | record[kernel_header::size + 6 + i];
  bridge.frame_vlan_words.store(words, std::memory_order_relaxed);
  bridge.frame_client_mac = mac;
}

// Ports of kinds 1 and 5 take every VLAN.
bool vlan_check_applies(const pppoeia_port& port)
{
  return (port.port_info_extra & ~4u) != 1;
}

bool port_set(passage& at)
{
  const uint16_t id = at.result.port;
  at.port = port_find(at.bridge, id);
  if (!at.port) {
    pppoeia_log(log_debug, "<%s> >> Input device '%.16s', %d not found.", at.bridge.name, at.input_device(), id);
    return false;
  }
  at.bridge.cur_port = id - 1u;
  return true;
}

// Whether the VLAN lets the frame come under the agent's rules at all.
bool vlan_enabled(const passage& at)
{
  if (!vlan_check_applies(*at.port)) {
    pppoeia_log(log_debug, "<%s> >> Skip VLAN check for interface: %d.", at.bridge.name,
                static_cast<int>(at.port->port_id));
    return true;
  }
  if (at.bridge.vlan_enabled.test(at.vid))
    return true;
  pppoeia_log(log_debug, "<%s> >> VID %04x (%d) not enabled.", at.bridge.name, at.vid, at.vid);
  return false;
}

// Takes the PPPoE header apart. The reason to drop it, if this is no discovery frame or one longer than the record.
std::optional<fate> discovery_set(passage& at, size_t ethertype)
{
  if (const uint16_t type = be16_at(at.all(), ethertype); type != pppoe::ethertype_discovery) {
    pppoeia_log(log_debug, "<%s> >> 0x%04x is not an PPPoE Discovery EtherType.", at.bridge.name, type);
    return fate::not_discovery;
  }
  at.pppoe = discovery_parse(at.all(), ethertype);
  at.result.code = at.pppoe.code;
  if (at.debug)
    frame_log_discovery(at.bridge, at.all(), at.pppoe);
  if (at.pppoe.end() > at.record.received) {
    at.log_misfit();
    at.count(&pppoeia_stats::malformed);
    return fate::payload_past_end;
  }
  at.result.ethertype = static_cast<uint32_t>(ethertype);
  if (at.debug)
    tags_log(at.bridge, at.tags());
  return std::nullopt;
}

bool client_code(uint8_t code)
{
  return code == pppoe::padi || code == pppoe::padr;
}

bool server_code(uint8_t code)
{
  return code == pppoe::pado || code == pppoe::pads;
}

// Whether the port's side allows the code. State 0 was dealt with before.
bool role_allows(const passage& at)
{
  const uint8_t code = at.pppoe.code;
  if (at.port->state == 1 && !client_code(code) && code != pppoe::padt) {
    pppoeia_log(log_debug, "<%s> >> Only PPPoE client is allowed on '%.16s'.", at.bridge.name, at.input_device());
    return false;
  }
  if (at.port->state == 2 && !server_code(code) && code != pppoe::padt) {
    pppoeia_log(log_debug, "<%s> >> Only PPPoE server is allowed on '%.16s'.", at.bridge.name, at.input_device());
    return false;
  }
  return true;
}

// Finds a vendor tag. False when the port may not send one.
bool vsa_allowed(passage& at)
{
  at.vsa = vendor_tag_find(at.bridge, at.tags());
  if (at.vsa == no_tag)
    return true;
  pppoeia_log(log_debug, "<%s>    Found VSA tag.", at.bridge.name);
  if (at.port->trust != 1)
    return true;
  pppoeia_log(log_debug, "<%s>    Port is untrusted, there should be no VSA tag.", at.bridge.name);
  return false;
}

uint32_t pppoeia_stats::*counter_of(uint8_t code)
{
  switch (code) {
  case pppoe::padi:
    return &pppoeia_stats::padi;
  case pppoe::padr:
    return &pppoeia_stats::padr;
  case pppoe::pado:
    return &pppoeia_stats::pado;
  case pppoe::pads:
    return &pppoeia_stats::pads;
  case pppoe::padt:
    return &pppoeia_stats::padt;
  default:
    return &pppoeia_stats::unknown_code;
  }
}

// What an accepted and counted frame becomes.
fate frame_edit(passage& at)
{
  if (server_code(at.pppoe.code))
    return vsa_of_server_frame(at);
  if (client_code(at.pppoe.code))
    return vsa_of_client_frame(at);
  return fate::unedited;
}

void log_forwarding(const passage& at)
{
  const frame_lengths lengths = at.lengths();
  pppoeia_log(log_debug, "<%s>    Frame is %d bytes, payload length %d bytes.", at.bridge.name,
              frame_logged_size(lengths.record), lengths.payload);
  pppoeia_frame_dump(at.bridge, at.all(), lengths.record, "    ");
  pppoeia_log(log_debug, "<%s>    Forwarding frame to %.16s.", at.bridge.name, at.output_device());
  const const_bytes leaving = at.all().first(lengths.record);
  tags_log(at.bridge, {leaving, at.pppoe.first_tag(), at.pppoe.first_tag() + lengths.payload});
}

frame_result drop_counted(passage& at, fate why)
{
  at.count(&pppoeia_stats::dropped);
  return at.ends(why, 0);
}

// Role, trust, count and edit of a discovery frame that fits.
frame_result discovery_serve(passage& at)
{
  at.result.of_subscriber = at.port->state == 0 || at.port->state == 1;
  if (at.port->state == 0) {
    pppoeia_log(log_debug, "<%s> >> PPPoE is disabled on '%.16s'. Forwarding unchanged.", at.bridge.name,
                at.input_device());
    at.count(&pppoeia_stats::unchanged);
    return at.ends(fate::port_disabled, at.record.received);
  }
  if (!role_allows(at))
    return drop_counted(at, fate::role);
  if (!vsa_allowed(at))
    return drop_counted(at, fate::tag_untrusted);
  at.count(counter_of(at.pppoe.code));
  const fate what = frame_edit(at);
  if (class_of(what) == fate_class::dropped)
    return at.ends(what, 0);
  if (at.debug)
    log_forwarding(at);
  return at.ends(what, at.lengths().record);
}

bool record_well_formed(const pppoeia_bridge& bridge, const frame_record& record)
{
  return record.received > 0 && record.received <= bridge.buffer_size && record.capacity >= frame_capacity_min &&
         host_at<uint32_t>({record.data, record.capacity}, kernel_header::record_length) == record.received;
}

}  // namespace

frame_result frame_process(pppoeia_bridge& bridge, const frame_record& record, frame_services& services)
{
  passage at{bridge, record, services, log_enabled(log_debug)};
  frame_keep(bridge, at.all());
  bridge.rx_len = static_cast<int32_t>(record.received);
  at.result.port = host_at<uint16_t>(at.all(), kernel_header::input_port);  // a cut field goes on with zeros
  if (!record_well_formed(bridge, record))
    return at.ends(fate::record_length, 0);
  bridge.frame_end = record.data + record.received;
  if (bridge.disabled.load(std::memory_order_relaxed))
    return at.ends(fate::bridge_off, record.received);
  if (at.debug) {
    frame_log_received(bridge, at.all(), record.received);
    pppoeia_frame_dump(bridge, at.all(), record.received, ">>  ");
  }
  if (!port_set(at))
    return at.ends(fate::unknown_port, 0);
  const vlan_tags tags = vlan_tags_parse(at.all(), bridge.stag_ethertype);
  if (at.debug)
    frame_log_vlan_tags(bridge, tags);
  at.vid = at.result.vid = tags.vid();
  if (!vlan_enabled(at))
    return at.ends(fate::vlan_not_enabled, record.received);
  if (const std::optional<fate> why = discovery_set(at, tags.ethertype))
    return at.ends(*why, 0);
  return discovery_serve(at);
}
