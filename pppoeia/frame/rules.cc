#include "pppoeia/frame/rules.h"

namespace {

// Whether the port's side allows the code.
bool role_allows(const pppoeia_port& port, uint8_t code)
{
  if (port.state == 1)
    return pppoe::client_code(code) || code == pppoe::padt;
  if (port.state == 2)
    return pppoe::server_code(code) || code == pppoe::padt;
  return true;
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

// What an accepted frame becomes. A vendor tag that does not lie whole inside the payload is none whose place the
// line's could take.
verdict accepted(const pppoeia_bridge& bridge, const parsed_frame& frame)
{
  const uint8_t code = frame.pppoe.code;
  const auto counter = counter_of(code);
  const bool tagged = frame.vendor_tag != no_tag;
  if (pppoe::client_code(code))
    return {frame_action::tag_insert, counter,
            tagged && frame.tags().fits(frame.vendor_tag) ? fate::tag_replaced : fate::tag_inserted};
  if (!pppoe::server_code(code))
    return {frame_action::forward, counter, fate::unedited};
  if (!tagged)
    return {frame_action::forward, counter, fate::tag_absent};
  if (bridge.vsa_mode == 1)
    return {frame_action::tag_remove, counter, fate::tag_removed};
  return {frame_action::forward, counter, fate::tag_kept};
}

}  // namespace

bool takes_every_vlan(const pppoeia_port& port)
{
  return (port.port_info_extra & ~4u) == 1;
}

verdict frame_judge(const pppoeia_bridge& bridge, const pppoeia_port* port, const parsed_frame& frame)
{
  if (!port)
    return {frame_action::drop, nullptr, fate::unknown_port};
  if (!takes_every_vlan(*port) && !bridge.vlan_enabled.test(frame.vlan.vid()))
    return {frame_action::pass, nullptr, fate::vlan_not_enabled};
  if (frame.ethertype != pppoe::ethertype_discovery)
    return {frame_action::drop, nullptr, fate::not_discovery};
  if (!frame.fits)
    return {frame_action::drop, &pppoeia_stats::malformed, fate::payload_past_end};
  if (port->state == 0)
    return {frame_action::pass, &pppoeia_stats::unchanged, fate::port_disabled};
  if (!role_allows(*port, frame.pppoe.code))
    return {frame_action::drop, &pppoeia_stats::dropped, fate::role};
  if (frame.vendor_tag != no_tag && port->trust == 1)
    return {frame_action::drop, &pppoeia_stats::dropped, fate::tag_untrusted};
  return accepted(bridge, frame);
}
