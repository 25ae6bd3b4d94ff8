#include "platform/kvbridged/record.h"

#include <algorithm>
#include <cstring>

namespace kvbridged {
namespace {

// Places in the header, as the agent reads them.
constexpr size_t header_size = 107;
constexpr size_t vlan_word = 4;
constexpr size_t record_length = 48;
constexpr size_t port_number = 52;
constexpr size_t input_name = 74;
constexpr size_t output_name = 90;
constexpr size_t name_size = 16;

void word_put(frame_bytes& record, size_t offset, uint16_t word)
{
  record[offset] = static_cast<unsigned char>(word >> 8);
  record[offset + 1] = static_cast<unsigned char>(word);
}

void name_put(frame_bytes& record, size_t offset, const std::string& name)
{
  std::memcpy(&record[offset], name.data(), std::min(name.size(), name_size - 1));
}

// Tag control words of the outer tag (0 without one) and of the customer's behind it (4095 without one).
void tags_put(frame_bytes& record, frame_view frame, uint16_t stag_ethertype)
{
  constexpr uint16_t none = 4095;
  const uint16_t outer = word_at(frame, ethertype_offset);
  const bool tagged = outer == ctag_ethertype || outer == stag_ethertype;
  const bool twice = tagged && word_at(frame, ethertype_offset + tag_size) == ctag_ethertype;
  word_put(record, vlan_word, tagged ? word_at(frame, 14) : uint16_t{0});
  word_put(record, vlan_word + 2, twice ? word_at(frame, 18) : none);
}

}  // namespace

frame_bytes record_make(frame_view frame, uint16_t stag_ethertype, uint16_t input_port, const std::string& input_device,
                        const std::string& output_device)
{
  frame_bytes record(header_size + frame.size());
  const auto length = static_cast<uint32_t>(record.size());
  tags_put(record, frame, stag_ethertype);
  std::memcpy(&record[record_length], &length, sizeof length);
  std::memcpy(&record[port_number], &input_port, sizeof input_port);
  name_put(record, input_name, input_device);
  name_put(record, output_name, output_device);
  std::copy(frame.begin(), frame.end(), record.begin() + header_size);
  return record;
}

std::optional<returned_record> record_parse(frame_view record)
{
  uint32_t length = 0;
  if (record.size() < header_size + ethernet_header)
    return std::nullopt;
  std::memcpy(&length, &record[record_length], sizeof length);
  if (length > record.size() || length < header_size + ethernet_header)
    return std::nullopt;
  uint16_t port = 0;
  std::memcpy(&port, &record[port_number], sizeof port);
  const char* name = reinterpret_cast<const char*>(&record[output_name]);
  return returned_record{port, std::string(name, strnlen(name, name_size)),
                         record.subspan(header_size, length - header_size)};
}

}  // namespace kvbridged
