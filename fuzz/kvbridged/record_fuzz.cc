// Whatever comes back on the pseudo device, which any process of the node's root may write to. What is taken for a
// record has its frame inside what came, with an Ethernet header, a device name that fits its field, and can be made
// anew from its parts.
#include "base/packed.h"
#include "platform/kvbridge/record_header.h"
#include "platform/kvbridged/record.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

void require(bool holds)
{
  if (!holds)
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
  // A block of its own, so that a read past its end is seen.
  const kvbridged::frame_bytes record(data, data + size);
  const auto parsed = kvbridged::record_parse(record);
  if (!parsed)
    return 0;
  const kvbridged::frame_view frame = parsed->frame;
  require(frame.data() == record.data() + kernel_header::size && frame.size() >= kvbridged::ethernet_header &&
          kernel_header::size + frame.size() == host_at<uint32_t>(record, kernel_header::record_length));
  require(parsed->output_device.size() <= kernel_header::device_size &&
          std::memchr(parsed->output_device.data(), '\0', parsed->output_device.size()) == nullptr);
  const auto anew = kvbridged::record_make(frame, 0x88a8, parsed->input_port, "in", parsed->output_device);
  const auto again = kvbridged::record_parse(anew);
  require(again && again->input_port == parsed->input_port && std::ranges::equal(again->frame, frame) &&
          again->output_device == parsed->output_device.substr(0, kernel_header::device_size - 1));
  return 0;
}
