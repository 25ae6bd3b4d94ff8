// The record that carries a discovery frame to the agent and back: 107 bytes of header, then the frame.
#ifndef PLATFORM_KVBRIDGED_RECORD_H
#define PLATFORM_KVBRIDGED_RECORD_H

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace kvbridged {

using frame_bytes = std::vector<unsigned char>;
using mac_address = std::array<unsigned char, 6>;

// Addresses of a frame, which must have its 14 bytes of header.
mac_address destination_of(std::span<const unsigned char> frame);
mac_address source_of(std::span<const unsigned char> frame);

// A frame on its way to the agent.
frame_bytes record_make(std::span<const unsigned char> frame, uint16_t stag_ethertype, uint16_t input_port,
                        const std::string& input_device, const std::string& output_device);

// What came back from the agent.
struct returned_record {
  std::string output_device;  // empty: where the frame's destination is
  std::span<const unsigned char> frame;
};

// Nothing when the record is none: shorter than its own length, or without an Ethernet header.
std::optional<returned_record> record_parse(std::span<const unsigned char> record);

}  // namespace kvbridged

#endif
