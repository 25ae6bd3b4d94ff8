// The debug log of one frame, line by line, as an operator reads it.
#include "pppoeia/log.h"
#include "tests/support/records_fixture.h"
#include "tests/support/syslog_capture.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;

// Replaces every hexadecimal number of more than six digits by @.
void hide_addresses(std::string& line)
{
  size_t at = 0;
  while ((at = line.find("0x", at)) != std::string::npos) {
    const size_t end = std::min(line.find_first_not_of("0123456789abcdef", at + 2), line.size());
    if (end - at > 8)
      line.replace(at, end - at, "@");
    at += 1;
  }
}

// Lines of one frame at level 7, addresses of memory replaced by @.
std::vector<std::string> lines_of(pppoeia_bridge& bridge, const byte_string& record)
{
  pppoeia_log_level = log_debug;
  syslog_take();
  process(bridge, record);
  pppoeia_log_level = log_info;
  std::vector<std::string> lines = syslog_take_texts();
  for (std::string& line : lines)
    hide_addresses(line);
  return lines;
}

TEST(FrameLog, OfAnInsertedTag)
{
  test_bridge bridge;
  bridge.port(1, 1, 1);
  bridge->vlan_enabled.set(100);
  test_frame frame{.vlan_tags = {0x8100'2064}, .tags = {}, .first_word = 0x2064};
  EXPECT_THAT(
      lines_of(*bridge, frame.build()),
      ElementsAre("<br0> >> @in0 (ff:ff:ff:ff:ff:ff <-- 02:11:22:aa:bb:cc/2064:0fff), 25 bytes.",
                  "<br0> >>   ff ff ff ff ff ff 02 11   22 aa bb cc 81 00 20 64 ",
                  "<br0> >>   88 63 11 09 00 00 00 00   00 ",  // one byte past the frame, as many as the size says
                  "<br0> >> Found VLAN tag 2064 (VID 100).",
                  "<br0>    PPPoE starts at offset 18, version=1, type=1, code=PADI (9), session_id=0x0000, "
                  "payload_length=0",
                  "<br0>    Frame start=@, frame end=@, PPPoE start=@, PPPoE end=@",
                  "<br0>          Past PPPoE end: @ >= @",  // the log's walk
                  "<br0>          Past PPPoE end: @ >= @",  // the search's
                  "<br0> >> pppoeia_build_circuit_id\n", "<br0> >> Interface CID mode: 0\n",
                  "<br0> >> Selected CID mode: 0\n", "br_remote_id_format_get(br0)",
                  "<br0> >> No custom RID format configured for intf=1, vid=100. Return empty RID\n",
                  "<br0> >> Generated custom RID=''\n",
                  "<br0>          Past PPPoE end: @ >= @",  // where the tag goes
                  "<br0>    VSA tag will be added.", "<br0>    VSA tag stretched by 37 bytes.",
                  "<br0>          Past PPPoE end: @ >= @",  // what follows it
                  "<br0>    Added Circuit ID 'VELTRONA: eth 3/port1:100' (25 bytes).",
                  "<br0>    Added Remote Agent ID '' (0 bytes).",
                  "<br0>    Frame is 62 bytes, payload length 37 bytes.",
                  "<br0>      ff ff ff ff ff ff 02 11   22 aa bb cc 81 00 20 64 ",
                  "<br0>      88 63 11 09 00 00 00 25   01 05 00 21 00 00 0d e9 ",
                  "<br0>      01 19 56 45 4c 54 52 4f   4e 41 3a 20 65 74 68 20 ",
                  "<br0>      33 2f 70 6f 72 74 31 3a   31 30 30 02 00 00 ", "<br0>    Forwarding frame to out0.",
                  "<br0>        VENDOR (0x0105), 33 (0x0021) bytes."));
}

TEST(FrameLog, NothingIsLoggedBelowDebug)
{
  test_bridge bridge;
  bridge.port(1, 1, 0);
  syslog_take();
  process(*bridge, test_frame{}.build());
  EXPECT_TRUE(syslog_take().empty());
}

}  // namespace
