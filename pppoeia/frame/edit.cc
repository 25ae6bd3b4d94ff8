#include "pppoeia/frame/edit.h"

#include "platform/kvbridge/record_header.h"

#include <algorithm>
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

void vendor_tag_write(const vendor_tag& tag, mutable_bytes to)
{
  be16_put(to, 0, pppoe::tag_vendor);
  be16_put(to, 2, static_cast<uint16_t>(tag.size() - pppoe::tag_header));
  be32_put(to, 4, pppoe::vendor_id);
  mutable_bytes rest = to.subspan(8);
  rest = suboption_write(pppoe::agent_circuit_id, tag.circuit_id, rest);
  suboption_write(pppoe::agent_remote_id, tag.remote_id, rest);
}

// Where the bytes that follow a tag written at `place` come from: the tag behind an existing one if it ends within
// the PPPoE end, else `place` itself.
size_t tail_begin(const tag_area& area, size_t place)
{
  if (place >= area.end || !area.header_inside(place) || area.type(place) == pppoe::tag_end_of_list)
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

// Changes the record's lengths by `delta` bytes. What they are now; nothing when they cannot be.
std::optional<frame_lengths> lengths_change(mutable_bytes record, const discovery& pppoe, int64_t delta)
{
  const auto changed = lengths_changed(lengths_of(record, pppoe), delta, pppoe.first_tag());
  if (changed) {
    host_put<uint32_t>(record, kernel_header::record_length, changed->record);
    be16_put(record, pppoe.ethertype + pppoe::payload_length, changed->payload);
  }
  return changed;
}

}  // namespace

frame_lengths lengths_of(const_bytes record, const discovery& pppoe)
{
  return {host_at<uint32_t>(record, kernel_header::record_length),
          be16_at(record, pppoe.ethertype + pppoe::payload_length)};
}

size_t vendor_tag::size() const
{
  return pppoe::tag_header + sizeof pppoe::vendor_id + suboption_size(circuit_id) + suboption_size(remote_id);
}

insertion insertion_plan(const parsed_frame& frame, size_t size, bool replaces)
{
  const tag_area tags = frame.tags();
  const size_t last = frame.last_tag;
  const bool before_last = tags.type(last) == pppoe::tag_end_of_list || !tags.fits(last);
  const size_t place = replaces ? frame.vendor_tag : before_last ? last : tags.next(last);
  const size_t room = replaces ? tags.next(place) - place : 0;
  return {place, tail_begin(tags, place), static_cast<int64_t>(size) - static_cast<int64_t>(room)};
}

// What follows the tag is moved to where it will be, as far as the record will go.
bool vendor_tag_insert(mutable_bytes record, const parsed_frame& frame, const vendor_tag& tag, const insertion& plan)
{
  if (plan.delta != 0) {
    const auto lengths = lengths_change(record, frame.pppoe, plan.delta);
    if (!lengths)
      return false;
    if (const size_t to = plan.place + tag.size(); to < lengths->record)
      std::memmove(record.data() + to, record.data() + plan.tail,
                   std::min<size_t>(frame.record.size() - plan.tail, lengths->record - to));
  }
  vendor_tag_write(tag, record.subspan(plan.place));
  return true;
}

// Down onto the tag moves what follows it, to the record's end, if the tag behind it ends within the PPPoE end.
// Otherwise nothing moves, and the record's new length cuts the end off.
bool vendor_tag_take_out(mutable_bytes record, const parsed_frame& frame)
{
  const tag_area tags = frame.tags();
  const size_t tag = frame.vendor_tag;
  const size_t behind = tail_begin(tags, tag);
  if (!lengths_change(record, frame.pppoe, static_cast<int64_t>(tag) - static_cast<int64_t>(tags.next(tag))))
    return false;
  if (behind != tag)
    std::memmove(record.data() + tag, record.data() + behind, frame.record.size() - behind);
  return true;
}

void error_answer_write(mutable_bytes record, const parsed_frame& request, std::string_view device,
                        const unsigned char own_mac[6])
{
  unsigned char* input = record.data() + kernel_header::input_device;
  unsigned char* output = record.data() + kernel_header::output_device;
  std::memcpy(output, input, kernel_header::device_size);
  output[0] = '\0';
  std::memcpy(input, device.data(), device.size());  // bytes behind the NUL stay as they were
  input[device.size()] = '\0';

  unsigned char* to = record.data() + kernel_header::size;
  unsigned char* from = to + 6;
  std::memcpy(to, from, 6);
  std::memcpy(from, own_mac, 6);

  const discovery& pppoe = request.pppoe;
  record[pppoe.ethertype + pppoe::code_offset] = pppoe.code == pppoe::padi ? pppoe::pado : pppoe::pads;
  be16_put(record, pppoe.ethertype + pppoe::payload_length, pppoe::tag_header);
  be16_put(record, pppoe.first_tag(), pppoe::tag_generic_error);
  be16_put(record, pppoe.first_tag() + 2, 0);
  const size_t rest = pppoe.first_tag() + pppoe::tag_header;
  if (rest < request.record.size())
    std::memset(record.data() + rest, 0xff, request.record.size() - rest);
}
