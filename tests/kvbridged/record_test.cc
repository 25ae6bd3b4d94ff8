#include "platform/kvbridged/record.h"

#include "tests/kvbridged/frames.h"
#include "tests/support/golden_frame.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>

namespace {

using namespace kvbridged;

constexpr size_t header = 107;
constexpr uint16_t stag = 0x88a8;

TEST(Record, SaysWhereTheFrameIsFromAndWhereItGoes)
{
  const frame_bytes frame = golden_frame("padi");
  const frame_bytes record = record_make(frame, stag, 513, "line1", "an_interface_nam");
  ASSERT_EQ(record.size(), header + frame.size());
  uint32_t length = 0;
  uint16_t port = 0;
  std::memcpy(&length, &record[48], sizeof length);
  std::memcpy(&port, &record[52], sizeof port);
  EXPECT_EQ(length, record.size());
  EXPECT_EQ(port, 513);
  EXPECT_STREQ(reinterpret_cast<const char*>(&record[74]), "line1");
  const auto back = record_parse(record);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->output_device, "an_interface_na");
  EXPECT_TRUE(std::ranges::equal(back->frame, frame));
}

TEST(Record, CarriesTheControlWordsOfBothTags)
{
  const auto words_of = [](const frame_bytes& frame) {
    const frame_bytes record = record_make(frame, stag, 1, "", "");
    return std::pair<unsigned, unsigned>(word_at(record, 4), word_at(record, 6));
  };
  const auto words = [&](const std::vector<uint16_t>& tags) {
    return words_of(frame_head(everybody, host_address(1), tags, discovery_ethertype));
  };
  EXPECT_EQ(words_of(golden_frame("padi")), std::pair(0u, 4095u));
  EXPECT_EQ(words_of(golden_frame("padi-tagged")), std::pair(100u, 4095u));
  EXPECT_EQ(words_of(golden_frame("padi-double-tagged")), std::pair(0x6064u, 5u));
  EXPECT_EQ(words({stag, stag}), std::pair(19u, 4095u));
  EXPECT_EQ(words({0x9100, 0x8100}), std::pair(0u, 4095u));
}

TEST(Record, ThatSaysItIsLongerOrTooShortIsNone)
{
  frame_bytes record = record_make(discovery_frame(0x09, everybody, host_address(1)), stag, 1, "a", "b");
  for (const uint32_t length :
       {uint32_t{0}, uint32_t{header + 13}, static_cast<uint32_t>(record.size() + 1), UINT32_MAX}) {
    std::memcpy(&record[48], &length, sizeof length);
    EXPECT_FALSE(record_parse(record)) << length;
  }
  const uint32_t cut = header + 14;
  std::memcpy(&record[48], &cut, sizeof cut);
  ASSERT_TRUE(record_parse(record));
  EXPECT_EQ(record_parse(record)->frame.size(), 14u);
  EXPECT_FALSE(record_parse(frame_view(record).first(header + 13)));
}

}  // namespace
