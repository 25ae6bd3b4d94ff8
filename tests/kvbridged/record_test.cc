#include "platform/kvbridged/record.h"

#include "base/packed.h"
#include "platform/kvbridge/record_header.h"
#include "platform/kvbridged/caller_memory.h"
#include "tests/kvbridged/frames.h"
#include "tests/support/golden_frame.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace kvbridged;

constexpr size_t header = kernel_header::size;
constexpr uint16_t stag = 0x88a8;

TEST(Record, SaysWhereTheFrameIsFromAndWhereItGoes)
{
  const frame_bytes frame = golden_frame("padi");
  const frame_bytes record = record_make(frame, stag, 513, "line1", "an_interface_nam");
  ASSERT_EQ(record.size(), header + frame.size());
  EXPECT_EQ(host_at<uint32_t>(record, kernel_header::record_length), record.size());
  EXPECT_EQ(host_at<uint16_t>(record, kernel_header::input_port), 513);
  EXPECT_STREQ(reinterpret_cast<const char*>(&record[kernel_header::input_device]), "line1");
  const auto back = record_parse(record);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->output_device, "an_interface_na");
  EXPECT_TRUE(std::ranges::equal(back->frame, frame));
}

TEST(Record, CarriesTheControlWordsOfBothTags)
{
  const auto words_of = [](const frame_bytes& frame) {
    const frame_bytes record = record_make(frame, stag, 1, "", "");
    return std::pair(word_at(record, kernel_header::vlan_word), word_at(record, kernel_header::cvlan_word));
  };
  const auto words = [&](const std::vector<uint16_t>& tags) {
    return words_of(frame_head(everybody, host_address(1), tags, discovery_ethertype));
  };
  EXPECT_EQ(words_of(golden_frame("padi")), std::pair(uint16_t{0}, vid_none));
  EXPECT_EQ(words_of(golden_frame("padi-tagged")), std::pair(uint16_t{100}, vid_none));
  EXPECT_EQ(words_of(golden_frame("padi-double-tagged")), std::pair(uint16_t{0x6064}, uint16_t{5}));
  EXPECT_EQ(words({stag, stag}), std::pair(uint16_t{19}, vid_none));
  EXPECT_EQ(words({0x9100, 0x8100}), std::pair(uint16_t{0}, vid_none));
}

TEST(Record, ThatSaysItIsLongerOrTooShortIsNone)
{
  frame_bytes record = record_make(discovery_frame(0x09, everybody, host_address(1)), stag, 1, "a", "b");
  for (const uint32_t length :
       {uint32_t{0}, uint32_t{header + 13}, static_cast<uint32_t>(record.size() + 1), UINT32_MAX}) {
    host_put(record, kernel_header::record_length, length);
    EXPECT_FALSE(record_parse(record)) << length;
  }
  const uint32_t cut = header + 14;
  host_put(record, kernel_header::record_length, cut);
  ASSERT_TRUE(record_parse(record));
  EXPECT_EQ(record_parse(record)->frame.size(), 14u);
  EXPECT_FALSE(record_parse(frame_view(record).first(header + 13)));
}

// A name may end where the caller's memory does.
TEST(CallerMemory, IsReadToItsEnd)
{
  constexpr size_t page = 4096;
  void* const map = mmap(nullptr, 3 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(map, MAP_FAILED);
  auto* const begin = static_cast<char*>(map);
  std::fill(begin, begin + 2 * page, 'x');
  ASSERT_EQ(mprotect(begin + 2 * page, page, PROT_NONE), 0);
  EXPECT_EQ(caller_bytes(getpid(), begin + page - 5, 16), std::string(16, 'x'));
  EXPECT_EQ(caller_bytes(getpid(), begin + 2 * page - 5, 16), "xxxxx");
  EXPECT_EQ(caller_bytes(getpid(), begin + 2 * page, 16), "");
  munmap(map, 3 * page);
  std::thread([] { EXPECT_EQ(process_of(gettid()), getpid()); }).join();
  EXPECT_EQ(process_of(-1), 0);
}

}  // namespace
