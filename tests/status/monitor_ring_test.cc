// A watcher that reads, one that does not, and none.
#include "platform/kvbridge/record_header.h"
#include "pppoeia/status/monitor_ring.h"

#include <atomic>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

namespace {

constexpr size_t header_size = kernel_header::size;

// Passes a frame whose bytes all follow from its number.
void pass(monitor_ring& ring, uint64_t number)
{
  unsigned char record[header_size + 200];
  const auto size = static_cast<uint32_t>(header_size + 60 + number % 100);
  std::memset(record, static_cast<int>(number % 251), sizeof record);
  const frame_record view{record, size, sizeof record};
  ring.came(view);
  ring.left(view, {.length = size, .what = fate::unedited}, number);
}

void check(const watched_frame& frame)
{
  const uint64_t number = frame.at_ns;
  const std::string bytes(60 + number % 100, static_cast<char>(number % 251));
  ASSERT_EQ(frame.before, bytes) << number;
  ASSERT_EQ(frame.after, bytes) << number;
}

// 24 bytes of a frame that was dropped take 64 bytes of the 512 KB.
TEST(MonitorRing, HoldsItsFillForEachWatcher)
{
  const auto ring = std::make_unique<monitor_ring>();
  EXPECT_FALSE(ring->watched());
  monitor_ring::place full = ring->watch(), over = ring->watch();
  unsigned char record[header_size + 24] = {};
  const frame_record view{record, sizeof record, sizeof record};
  watched_frame frame;
  uint64_t lost = 0;
  for (uint64_t number = 1; number <= 8192; ++number) {
    ring->came(view);
    ring->left(view, {.what = fate::role}, number);
  }
  while (ring->read(full, frame, lost))
    ASSERT_EQ(frame.before.size() + frame.after.size(), 24u);
  EXPECT_EQ(frame.at_ns, 8192u);
  pass(*ring, 1);
  EXPECT_FALSE(ring->read(over, frame, lost)) << "goes on with the newest";
  EXPECT_TRUE(ring->read(full, frame, lost));
  EXPECT_EQ(lost, 0u);
  ring->unwatch();
  EXPECT_TRUE(ring->watched());
}

TEST(MonitorRing, FramesAreWholeWhileTheWorkerGoesOn)
{
  constexpr uint64_t frames = 300'000;
  const auto ring = std::make_unique<monitor_ring>();
  monitor_ring::place at = ring->watch();
  watched_frame frame;
  uint64_t lost = 0, read = 1;
  pass(*ring, 1);
  ASSERT_TRUE(ring->read(at, frame, lost));  // from here on it is told what it loses
  std::atomic<bool> done{false};
  std::thread worker([&] {
    for (uint64_t number = 2; number <= frames; ++number)
      pass(*ring, number);
    done = true;
  });
  for (bool over = false; !over && !HasFatalFailure();) {
    const bool ended = done;
    if (ring->read(at, frame, lost)) {
      check(frame);
      EXPECT_EQ(frame.at_ns, ++read + lost) << "numbers of frames, lost ones among them";
    } else {
      over = ended;
    }
  }
  worker.join();
}

}  // namespace
