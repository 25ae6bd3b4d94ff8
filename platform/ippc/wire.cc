#include "platform/ippc/wire.h"

namespace ippc {
namespace {

void put_arguments(std::vector<unsigned char>& packet, std::span<const const_bytes> arguments)
{
  for (const const_bytes argument : arguments) {
    packed_put(packet, static_cast<uint32_t>(argument.size()));
    packet.insert(packet.end(), argument.begin(), argument.end());
  }
}

// Reads `count` arguments and the packet's end. False when they are not there, or more is.
bool take_arguments(packed_reader& packet, size_t count, std::vector<const_bytes>& arguments)
{
  for (size_t i = 0; i < count && !packet.failed(); ++i) {
    const auto size = packet.number<uint32_t>();
    if (size > argument_max)
      return false;
    arguments.push_back(packet.take(size));
  }
  return packet.at_end();
}

}  // namespace

void request_decode(const_bytes packet, request& out)
{
  packed_reader in(packet);
  out.arguments.clear();
  const bool right_kind = in.number<uint32_t>() == magic && in.number<uint16_t>() == version;
  if (!right_kind)
    in = packed_reader(packet.size() < 6 ? const_bytes{} : packet.subspan(6));
  out.function_id = in.number<uint16_t>();
  out.sequence = in.number<uint32_t>();
  const auto count = in.number<uint8_t>();
  const const_bytes zeros = in.take(3);
  const bool zero = zeros.size() == 3 && zeros[0] == 0 && zeros[1] == 0 && zeros[2] == 0;
  const bool reply_fits = packet.size() + (reply_header - request_header) <= packet_max;
  out.well_formed = right_kind && zero && reply_fits && take_arguments(in, count, out.arguments);
  if (!out.well_formed)
    out.arguments.clear();
}

void request_encode(uint16_t function_id, uint32_t sequence, std::span<const const_bytes> arguments,
                    std::vector<unsigned char>& packet)
{
  packed_put(packet, magic);
  packed_put(packet, version);
  packed_put(packet, function_id);
  packed_put(packet, sequence);
  packed_put(packet, static_cast<uint8_t>(arguments.size()));
  packet.insert(packet.end(), 3, 0);
  put_arguments(packet, arguments);
}

void reply_encode(const reply& reply, std::vector<unsigned char>& packet)
{
  packet.clear();
  packed_put(packet, magic);
  packed_put(packet, version);
  packed_put(packet, reply.function_id);
  packed_put(packet, reply.sequence);
  packed_put(packet, static_cast<uint8_t>(reply.arguments.size()));
  packed_put(packet, static_cast<uint8_t>(reply.has_result));
  packed_put(packet, uint16_t{0});
  packed_put(packet, reply.status);
  packed_put(packet, reply.has_result ? reply.result : 0);
  put_arguments(packet, reply.arguments);
}

std::optional<reply> reply_decode(const_bytes packet)
{
  packed_reader in(packet);
  reply out;
  if (in.number<uint32_t>() != magic || in.number<uint16_t>() != version)
    return std::nullopt;
  out.function_id = in.number<uint16_t>();
  out.sequence = in.number<uint32_t>();
  const auto count = in.number<uint8_t>();
  out.has_result = in.number<uint8_t>() == 1;
  in.take(2);
  out.status = in.number<int32_t>();
  out.result = in.number<int32_t>();
  if (!take_arguments(in, count, out.arguments))
    return std::nullopt;
  return out;
}

}  // namespace ippc
