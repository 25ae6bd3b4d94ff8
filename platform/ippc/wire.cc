#include "platform/ippc/wire.h"

namespace ippc {
namespace {

// Takes numbers and byte strings off the front of a packet; once it runs short it stays failed and answers zeros.
class reader {
public:
  explicit reader(const_bytes rest) : rest_(rest) {}

  template <typename Number>
  Number number()
  {
    uint32_t value = 0;
    const const_bytes field = take(sizeof(Number));
    for (size_t i = 0; i < field.size(); ++i)
      value |= static_cast<uint32_t>(field[i]) << (8 * i);
    return static_cast<Number>(value);
  }

  const_bytes take(size_t size)
  {
    if (failed_ || size > rest_.size()) {
      failed_ = true;
      return {};
    }
    const const_bytes front = rest_.first(size);
    rest_ = rest_.subspan(size);
    return front;
  }

  bool failed() const { return failed_; }
  bool at_end() const { return !failed_ && rest_.empty(); }

private:
  const_bytes rest_;
  bool failed_ = false;
};

template <typename Number>
void put(std::vector<unsigned char>& packet, Number value)
{
  for (size_t i = 0; i < sizeof value; ++i)
    packet.push_back(static_cast<unsigned char>(static_cast<uint32_t>(value) >> (8 * i)));
}

void put_arguments(std::vector<unsigned char>& packet, std::span<const const_bytes> arguments)
{
  for (const const_bytes argument : arguments) {
    put(packet, static_cast<uint32_t>(argument.size()));
    packet.insert(packet.end(), argument.begin(), argument.end());
  }
}

// Reads `count` arguments and the packet's end. False when they are not there, or more is.
bool take_arguments(reader& packet, size_t count, std::vector<const_bytes>& arguments)
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
  reader in(packet);
  out.arguments.clear();
  const bool right_kind = in.number<uint32_t>() == magic && in.number<uint16_t>() == version;
  if (!right_kind)
    in = reader(packet.size() < 6 ? const_bytes{} : packet.subspan(6));
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
  put(packet, magic);
  put(packet, version);
  put(packet, function_id);
  put(packet, sequence);
  put(packet, static_cast<uint8_t>(arguments.size()));
  packet.insert(packet.end(), 3, 0);
  put_arguments(packet, arguments);
}

void reply_encode(const reply& reply, std::vector<unsigned char>& packet)
{
  packet.clear();
  put(packet, magic);
  put(packet, version);
  put(packet, reply.function_id);
  put(packet, reply.sequence);
  put(packet, static_cast<uint8_t>(reply.arguments.size()));
  put(packet, static_cast<uint8_t>(reply.has_result));
  put(packet, uint16_t{0});
  put(packet, reply.status);
  put(packet, reply.has_result ? reply.result : 0);
  put_arguments(packet, reply.arguments);
}

std::optional<reply> reply_decode(const_bytes packet)
{
  reader in(packet);
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
