#include "pppoeia/frame/vendor_tag.h"

#include "pppoeia/records.h"

#include <cstring>

namespace {

constexpr size_t suboption_header = 2;  // sub-option number and length, a byte each

size_t suboption_size(const std::optional<const_bytes>& id)
{
  return id ? suboption_header + id->size() : 0;
}

// Writes one sub-option, if there is one, and answers the rest of `to`.
mutable_bytes suboption_write(uint8_t number, const std::optional<const_bytes>& id, mutable_bytes to)
{
  if (!id)
    return to;
  to[0] = number;
  to[1] = static_cast<unsigned char>(id->size());
  if (!id->empty())
    std::memcpy(to.data() + suboption_header, id->data(), id->size());
  return to.subspan(suboption_size(id));
}

}  // namespace

size_t vendor_tag::size() const
{
  return pppoe::tag_header + sizeof pppoe::vendor_id + suboption_size(circuit_id) + suboption_size(remote_id);
}

void vendor_tag_write(const vendor_tag& tag, mutable_bytes to)
{
  be16_put(to, 0, pppoe::tag_vendor);
  be16_put(to, 2, static_cast<uint16_t>(tag.size() - pppoe::tag_header));
  be32_put(to, 4, pppoe::vendor_id);
  mutable_bytes rest = to.subspan(8);
  rest = suboption_write(pppoe::agent_circuit_id, tag.circuit_id, rest);
  suboption_write(pppoe::agent_remote_id, tag.remote_id, rest);
}

size_t tail_begin(const pppoeia_bridge& bridge, const tag_area& area, size_t place)
{
  if (place >= area.end) {
    past_end_log(bridge, area, place);
    return place;
  }
  if (!area.header_inside(place) || area.type(place) == pppoe::tag_end_of_list)
    return place;
  const size_t behind = area.next(place);
  return area.fits(behind) ? behind : place;
}

std::optional<frame_lengths> lengths_changed(frame_lengths lengths, int64_t delta, size_t first_tag)
{
  const int64_t payload = lengths.payload + delta;
  const int64_t record = lengths.record + delta;
  if (payload < 0 || payload > UINT16_MAX || record < static_cast<int64_t>(first_tag))
    return std::nullopt;
  return frame_lengths{static_cast<uint32_t>(record), static_cast<uint16_t>(payload)};
}

void vendor_tag_close_gap(const pppoeia_bridge& bridge, const tag_area& area, mutable_bytes record, size_t tag)
{
  const size_t behind = tail_begin(bridge, area, tag);
  if (behind != tag)
    std::memmove(record.data() + tag, record.data() + behind, area.record.size() - behind);
}
