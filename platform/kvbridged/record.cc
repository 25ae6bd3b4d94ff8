#include "platform/kvbridged/record.h"

#include "base/packed.h"
#include "platform/kvbridge/record_header.h"

#include <algorithm>
#include <cstring>

namespace kvbridged {
namespace {

using kernel_header::device_size;

void name_put(frame_bytes& record, size_t offset, const std::string& name)
{
  std::memcpy(&record[offset], name.data(), std::min(name.size(), device_size - 1));
}

// Tag control words of the outer tag (0 without one) and of the customer's behind it.
void tags_put(frame_bytes& record, frame_view frame, uint16_t stag_ethertype)
{
  const uint16_t outer = word_at(frame, ethertype_offset);
  const bool tagged = outer == ctag_ethertype || outer == stag_ethertype;
  const bool twice = tagged && word_at(frame, ethertype_offset + tag_size) == ctag_ethertype;
  be16_put(record, kernel_header::vlan_word, tagged ? word_at(frame, 14) : uint16_t{0});
  be16_put(record, kernel_header::cvlan_word, twice ? word_at(frame, 18) : vid_none);
}

}  // namespace

frame_bytes record_make(frame_view frame, uint16_t stag_ethertype, uint16_t input_port, const std::string& input_device,
                        const std::string& output_device)
{
  frame_bytes record(kernel_header::size + frame.size());
  tags_put(record, frame, stag_ethertype);
  host_put(record, kernel_header::record_length, static_cast<uint32_t>(record.size()));
  host_put(record, kernel_header::input_port, input_port);
  name_put(record, kernel_header::input_device, input_device);
  name_put(record, kernel_header::output_device, output_device);
  std::copy(frame.begin(), frame.end(), record.begin() + kernel_header::size);
  return record;
}

std::optional<returned_record> record_parse(frame_view record)
{
  const auto length = host_at<uint32_t>(record, kernel_header::record_length);  // 0 when it is not there
  if (length > record.size() || length < kernel_header::size + ethernet_header)
    return std::nullopt;
  const char* name = reinterpret_cast<const char*>(&record[kernel_header::output_device]);
  return returned_record{host_at<uint16_t>(record, kernel_header::input_port),
                         std::string(name, strnlen(name, device_size)),
                         record.subspan(kernel_header::size, length - kernel_header::size)};
}

}  // namespace kvbridged
