// The record that carries a discovery frame to the agent and back: the header of platform/kvbridge/record_header.h,
// then the frame.
#ifndef PLATFORM_KVBRIDGED_RECORD_H
#define PLATFORM_KVBRIDGED_RECORD_H

#include "platform/kvbridged/frame.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kvbridged {

// The largest frame whose record the agent has room for on a device of that MTU: its buffer is 106 bytes larger.
constexpr size_t record_frame_max(int mtu)
{
  return static_cast<size_t>(mtu) - 1;
}

// A frame on its way to the agent.
frame_bytes record_make(frame_view frame, uint16_t stag_ethertype, uint16_t input_port, const std::string& input_device,
                        const std::string& output_device);

// What came back from the agent.
struct returned_record {
  uint16_t input_port;        // as it went to the agent
  std::string output_device;  // empty: where the frame's destination is
  frame_view frame;
};

// Nothing when the record is none: shorter than its own length, or without an Ethernet header.
std::optional<returned_record> record_parse(frame_view record);

}  // namespace kvbridged

#endif
