#include "platform/kvbridged/frame.h"

#include <algorithm>

namespace kvbridged {
namespace {

// Offsets from the EtherType of a discovery frame.
constexpr size_t code_offset = 3;
constexpr size_t length_offset = 6;
constexpr size_t tags_offset = 8;

constexpr unsigned char padi = 0x09, pado = 0x07, padr = 0x19, pads = 0x65;

mac_address address_at(frame_view frame, size_t offset)
{
  mac_address address;
  std::copy_n(frame.begin() + static_cast<std::ptrdiff_t>(offset), address.size(), address.begin());
  return address;
}

// PADI or PADR whose payload is whole, from one client.
bool is_request(frame_view frame, size_t ethertype)
{
  if (frame.size() < ethertype + tags_offset)
    return false;
  const unsigned char code = frame[ethertype + code_offset];
  const size_t end = ethertype + tags_offset + word_at(frame, ethertype + length_offset);
  return (code == padi || code == padr) && end <= frame.size() && !is_group(source_of(frame));
}

// What stands between the length of an 802.3 frame and the EtherType of what it carries: LLC, and SNAP of RFC 1042 or
// of a bridge tunnel. Wireless and other equipment puts it there and takes it off.
constexpr size_t snap_size = 6;
bool snap_at(frame_view frame, size_t at)
{
  constexpr unsigned char header[snap_size - 1] = {0xaa, 0xaa, 0x03, 0, 0};
  if (at + snap_size > frame.size() || !std::equal(std::begin(header), std::end(header), &frame[at]))
    return false;
  const unsigned char last = frame[at + snap_size - 1];
  return last == 0 || last == 0xf8;
}

}  // namespace

mac_address destination_of(frame_view frame)
{
  return address_at(frame, 0);
}

mac_address source_of(frame_view frame)
{
  return address_at(frame, 6);
}

bool is_group(const mac_address& address)
{
  return (address[0] & 1) != 0;
}

uint16_t word_at(frame_view frame, size_t offset)
{
  return offset + 2 <= frame.size() ? static_cast<uint16_t>(frame[offset] << 8 | frame[offset + 1]) : uint16_t{0};
}

frame_class classify(frame_view frame, uint16_t stag_ethertype)
{
  const tag_type_list types = tag_types(stag_ethertype);
  constexpr uint16_t length_most = 1500;
  bool own = true;
  size_t at = ethertype_offset;
  for (size_t tags = 0; tags <= tags_most; ++tags, at += tag_size) {
    if (word_at(frame, at) <= length_most && snap_at(frame, at + 2)) {
      at += 2 + snap_size;
      own = false;
    }
    if (at + 2 > frame.size())
      break;
    const uint16_t type = word_at(frame, at);
    if (type == discovery_ethertype)
      return {own ? frame_kind::discovery : frame_kind::hidden, at};
    const auto tag = std::find(types.begin(), types.end(), type);
    if (tag == types.end())
      return {frame_kind::other, at};
    own = own && tag < types.begin() + own_tag_types;
  }
  return {frame_kind::hidden, 0};
}

std::optional<frame_bytes> error_answer(frame_view request, size_t ethertype, const mac_address& source)
{
  // Type and length of a Generic-Error tag without a value, behind its own length as the payload's.
  constexpr unsigned char payload[] = {0, 4, 0x02, 0x03, 0, 0};
  constexpr size_t shortest = 60;
  if (!is_request(request, ethertype))
    return std::nullopt;
  const size_t end = ethertype + length_offset + sizeof payload;
  frame_bytes answer(std::max(end, shortest), 0xff);
  std::copy_n(request.begin(), ethertype + length_offset, answer.begin());
  std::copy_n(request.begin() + 6, source.size(), answer.begin());
  std::copy(source.begin(), source.end(), answer.begin() + 6);
  unsigned char& code = answer[ethertype + code_offset];
  code = code == padi ? pado : pads;
  std::copy(std::begin(payload), std::end(payload),
            answer.begin() + static_cast<std::ptrdiff_t>(ethertype + length_offset));
  return answer;
}

}  // namespace kvbridged
