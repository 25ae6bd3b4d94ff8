// One record on its way through the frame path's steps.
#ifndef PPPOEIA_FRAME_PASSAGE_H
#define PPPOEIA_FRAME_PASSAGE_H

#include "platform/kvbridge/record_header.h"
#include "pppoeia/frame/discovery.h"
#include "pppoeia/frame/frame.h"
#include "pppoeia/frame/vendor_tag.h"
#include "pppoeia/log.h"
#include "pppoeia/records.h"

struct passage {
  pppoeia_bridge& bridge;
  const frame_record& record;
  frame_services& services;
  const bool debug;              // whether debug lines pass: nothing is formatted for nothing
  pppoeia_port* port = nullptr;  // input port
  uint16_t vid = 0;              // of the outermost VLAN tag
  discovery pppoe{};
  size_t vsa = no_tag;  // offset of the first vendor tag
  frame_result result{};

  mutable_bytes all() const { return {record.data, record.capacity}; }
  const_bytes received() const { return {record.data, record.received}; }
  tag_area tags() const { return {received(), pppoe.first_tag(), pppoe.end()}; }
  size_t vsa_size() const { return vsa == no_tag ? 0 : tags().next(vsa) - vsa; }

  // Not more than 16 characters of it are the name.
  const char* input_device() const { return reinterpret_cast<const char*>(record.data + kernel_header::input_device); }
  const char* output_device() const
  {
    return reinterpret_cast<const char*>(record.data + kernel_header::output_device);
  }

  void count(uint32_t pppoeia_stats::*counter) const
  {
    ++(bridge.stats.*counter);
    ++(port->stats.*counter);
  }

  frame_lengths lengths() const
  {
    return {host_at<uint32_t>(all(), kernel_header::record_length),
            be16_at(all(), pppoe.ethertype + pppoe::payload_length)};
  }
  void lengths_put(frame_lengths lengths) const
  {
    host_put<uint32_t>(all(), kernel_header::record_length, lengths.record);
    be16_put(all(), pppoe.ethertype + pppoe::payload_length, lengths.payload);
  }

  // The end of the frame's way: `length` bytes go back.
  frame_result ends(fate what, uint32_t length)
  {
    result.what = what;
    result.length = length;
    return result;
  }

  void log_misfit() const { pppoeia_log(log_debug, "<%s>    PPPoE PDU doesn't fit into frame.", bridge.name); }
};

#endif
