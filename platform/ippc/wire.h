// Requests and replies as packets, one coding for both ends. All numbers are little-endian; nothing follows the last
// argument. docs/ippc.md has the byte tables.
#ifndef PLATFORM_IPPC_WIRE_H
#define PLATFORM_IPPC_WIRE_H

#include "base/packed.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace ippc {

inline constexpr uint32_t magic = 0x43505049;
inline constexpr uint16_t version = 1;
inline constexpr size_t packet_max = 65536;
inline constexpr size_t argument_max = 4096;
inline constexpr size_t arguments_max = 255;
inline constexpr size_t request_header = 16;
inline constexpr size_t reply_header = 24;
inline constexpr int32_t status_malformed = -2;
inline constexpr int32_t status_busy = -3;  // of a reply to no request: all places are taken, the connection is closed

// A request taken apart. The arguments point into the packet.
struct request {
  bool well_formed = false;
  uint16_t function_id = 0;  // as far as it could be read, also when malformed
  uint32_t sequence = 0;
  std::vector<const_bytes> arguments;  // empty when malformed
};

// Takes a packet apart into `out`, whose memory is used again. A packet whose reply would not fit into one is
// malformed too.
void request_decode(const_bytes packet, request& out);

// Appends a request packet. Arguments are at most arguments_max of at most argument_max bytes.
void request_encode(uint16_t function_id, uint32_t sequence, std::span<const const_bytes> arguments,
                    std::vector<unsigned char>& packet);

struct reply {
  uint16_t function_id = 0;
  uint32_t sequence = 0;
  bool has_result = false;
  int32_t status = 0;
  int32_t result = 0;
  std::vector<const_bytes> arguments;  // point into the packet, or into the request's buffers when encoding
};

// Replaces the content of `packet` by the reply.
void reply_encode(const reply& reply, std::vector<unsigned char>& packet);

// Nothing when the packet is no reply.
std::optional<reply> reply_decode(const_bytes packet);

}  // namespace ippc

#endif
