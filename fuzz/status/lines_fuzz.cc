// Records, each of a length that the first byte gives, as the frame path leaves them: the line table stays within its
// bounds, moves only the lines of the port that a client's frame came from, and what it tells is text.
//
// A record: length, port (0 to 7, the upper bits say which fate), then the Ethernet frame.
#include "platform/kvbridge/record_header.h"
#include "pppoeia/status/line_table.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uint32_t ports = 4;
constexpr line_limits limits{.port = 3, .node = 10};

void check(const line_table& table)
{
  size_t lines = 0;
  line_view line;
  for (size_t slot = 0; slot < table.slots(); ++slot) {
    if (!table.read(slot, line))
      continue;
    ++lines;
    if (line.port != slot / (table.slots() / ports) + 1 || line.state > line_state::ended || line.ac_name.size() > 63 ||
        line.vendor_tag.size() > 135)
      std::abort();
  }
  if (lines > limits.node)
    std::abort();
}

void learn(line_table& table, const_bytes frame, uint8_t how, uint64_t now)
{
  unsigned char bytes_of[kernel_header::size + 512] = {};
  const size_t length = std::min<size_t>(frame.size(), 256);
  std::memcpy(bytes_of + kernel_header::size, frame.data(), length);
  const auto received = static_cast<uint32_t>(kernel_header::size + length);
  const frame_record record{bytes_of, received, sizeof bytes_of};
  constexpr uint32_t ethertype = kernel_header::size + 12;
  const auto what = static_cast<fate>(how / 8 % fate_count);
  const bool dropped = class_of(what) == fate_class::dropped;
  table.learn(record,
              {.length = dropped ? 0 : received,
               .what = what,
               .code = bytes_of[ethertype + 3],
               .of_subscriber = how % 8 <= 2,
               .port = static_cast<uint16_t>(how % 8),
               .ethertype = ethertype,
               .vendor_tag = ethertype + 8},
              now);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
  line_table table(ports, limits);
  const_bytes rest{data, size};
  for (uint64_t now = 1; rest.size() > 2; ++now) {
    const size_t length = std::min<size_t>(rest[0], rest.size() - 2);
    learn(table, rest.subspan(2, length), rest[1], now << 28);
    rest = rest.subspan(2 + length);
  }
  check(table);
  return 0;
}
