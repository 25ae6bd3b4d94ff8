#include "pppoeia/frame/path.h"

#include "platform/kvbridge/control.h"
#include "platform/kvbridge/record_header.h"
#include "pppoeia/frame/edit.h"
#include "pppoeia/frame/frame_log.h"
#include "pppoeia/frame/parse.h"
#include "pppoeia/frame/rules.h"
#include "pppoeia/log.h"
#include "pppoeia/records.h"

#include <algorithm>
#include <cstring>

namespace {

// Keeps header words and client for identifiers; the words also for queries that the management thread makes meanwhile.
void frame_keep(pppoeia_bridge& bridge, const_bytes record)
{
  const uint32_t words = static_cast<uint32_t>(be16_at(record, kernel_header::vlan_word)) << 16 |
                         be16_at(record, kernel_header::cvlan_word);
  bridge.frame_vlan_words.store(words, std::memory_order_relaxed);
  bridge.frame_client_mac = be48_at(record, kernel_header::size + 6);
}

bool record_well_formed(const pppoeia_bridge& bridge, const frame_record& record)
{
  return record.received > 0 && record.received <= bridge.buffer_size && record.capacity >= frame_capacity_min &&
         host_at<uint32_t>({record.data, record.capacity}, kernel_header::record_length) == record.received;
}

// A discovery frame between the rules' word and its end.
struct accepted_frame {
  pppoeia_bridge& bridge;
  pppoeia_port& port;
  const parsed_frame& frame;
  mutable_bytes record;
  frame_services& services;
  const frame_log* log;  // null while debug is off: nothing is formatted for nothing
};

// The bytes of an identifier for the tag: the byte identifier if there is one, else the text.
const_bytes bytes_of(const identifier& id, const frame_log* log, const char* which)
{
  if (id.bin.empty())
    return {reinterpret_cast<const unsigned char*>(id.text), strnlen(id.text, pppoe::identifier_max)};
  if (log)
    log->bytes_used(which);
  return const_bytes(id.bin).first(std::min(id.bin.size(), pppoe::identifier_max));
}

void clear(identifier& id)
{
  id.text[0] = '\0';
  id.bin.clear();
}

// The line's vendor tag, whose bytes are in the services.
vendor_tag tag_build(const accepted_frame& at)
{
  identifier& circuit = at.services.circuit_id;
  identifier& remote = at.services.remote_id;
  const uint16_t vid = at.frame.vlan.vid();
  clear(circuit);
  clear(remote);
  vendor_tag tag;
  at.services.identifiers.circuit_id(at.bridge, at.port, vid, circuit);
  if (const const_bytes id = bytes_of(circuit, at.log, "CID"); at.bridge.vsa_insert_circuit_id)
    tag.circuit_id = id;
  at.services.identifiers.remote_id(at.bridge, at.port, vid, remote);
  if (const const_bytes id = bytes_of(remote, at.log, "RID"); at.bridge.vsa_insert_remote_id)
    tag.remote_id = id;
  return tag;
}

// Whether the record would pass the largest PDU. 32 bits wrap on purpose: a record that shrinks below its header is
// far too large.
bool too_large(const accepted_frame& at, int64_t delta)
{
  const auto size = static_cast<uint32_t>(at.frame.record.size() + static_cast<uint64_t>(delta) - kernel_header::size);
  return size > at.bridge.max_pdu;
}

fate error_answer(const accepted_frame& at)
{
  if (at.log)
    at.log->too_large();
  unsigned char own_mac[6];
  if (at.services.local_mac(own_mac) != 0) {
    frame_log_no_address(at.bridge);
    return fate::no_own_address;
  }
  error_answer_write(at.record, at.frame, pseudo_device_name(at.bridge.name), own_mac);
  return fate::error_answered;
}

// `place` becomes the offset of the vendor tag that was put in.
fate tag_insert(const accepted_frame& at, fate reason, uint32_t& place)
{
  const bool replaces = reason == fate::tag_replaced;
  const vendor_tag tag = tag_build(at);
  const insertion plan = insertion_plan(at.frame, tag.size(), replaces);
  if (at.log)
    at.log->insertion_planned(plan, replaces);
  if (too_large(at, plan.delta))
    return error_answer(at);
  if (!vendor_tag_insert(at.record, at.frame, tag, plan))
    return fate::insertion_misfit;
  place = static_cast<uint32_t>(plan.place);
  if (at.log)
    at.log->inserted(tag, at.services.circuit_id.text, at.services.remote_id.text);
  return reason;
}

fate frame_edit(const accepted_frame& at, const verdict& says, uint32_t& place)
{
  if (says.action == frame_action::tag_insert)
    return tag_insert(at, says.reason, place);
  if (says.action == frame_action::tag_remove && !vendor_tag_take_out(at.record, at.frame))
    return fate::removal_misfit;
  return says.reason;
}

void frame_count(pppoeia_bridge& bridge, pppoeia_port* port, uint32_t pppoeia_stats::*counter)
{
  if (!counter)
    return;
  ++(bridge.stats.*counter);
  ++(port->stats.*counter);
}

// What is told of a frame from its parts, as far as it came.
void parts_tell(frame_result& result, const parsed_frame& frame, const pppoeia_port* port, fate reason)
{
  if (reason == fate::unknown_port)
    return;
  result.vid = frame.vlan.vid();
  if (reason == fate::vlan_not_enabled || reason == fate::not_discovery)
    return;
  result.code = frame.pppoe.code;
  if (!frame.fits)
    return;
  result.ethertype = static_cast<uint32_t>(frame.pppoe.ethertype);
  result.of_subscriber = port->state == 0 || port->state == 1;
}

// The end of the frame's way: `length` bytes go back.
frame_result ends(frame_result& result, fate what, uint32_t length)
{
  result.what = what;
  result.length = length;
  return result;
}

}  // namespace

frame_result frame_process(pppoeia_bridge& bridge, const frame_record& record, frame_services& services)
{
  const mutable_bytes whole{record.data, record.capacity};
  frame_result result{.port = host_at<uint16_t>(whole, kernel_header::input_port)};  // cut: it goes on with zeros
  frame_keep(bridge, whole);
  bridge.rx_len = static_cast<int32_t>(record.received);
  if (!record_well_formed(bridge, record))
    return result;
  bridge.frame_end = record.data + record.received;
  if (bridge.disabled.load(std::memory_order_relaxed))
    return ends(result, fate::bridge_off, record.received);

  pppoeia_port* const port = port_find(bridge, result.port);
  if (port)
    bridge.cur_port = result.port - 1u;
  const parsed_frame frame = frame_parse(whole.first(record.received), bridge.stag_ethertype);
  const verdict says = frame_judge(bridge, port, frame);
  const frame_log log{bridge, frame, whole};
  const frame_log* const debug = log_enabled(log_debug) ? &log : nullptr;
  if (debug)
    debug->judged(port, says.reason);
  parts_tell(result, frame, port, says.reason);
  frame_count(bridge, port, says.counter);
  if (says.action == frame_action::drop)
    return ends(result, says.reason, 0);
  if (says.action == frame_action::pass)
    return ends(result, says.reason, record.received);

  const fate what = frame_edit({bridge, *port, frame, whole, services, debug}, says, result.vendor_tag);
  if (debug)
    debug->ended(what);
  if (class_of(what) == fate_class::dropped)
    return ends(result, what, 0);
  if (debug)
    debug->forwarded();
  return ends(result, what, lengths_of(whole, frame.pppoe).record);
}
