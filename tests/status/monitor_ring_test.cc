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

TEST(MonitorRing, TellsAWatcherWhoFallsBehindHowMuchItLost)
{
  const auto ring = std::make_unique<monitor_ring>();
  EXPECT_FALSE(ring->watched());
  monitor_ring::place at = ring->watch();
  watched_frame frame;
  uint64_t lost = 0;
  pass(*ring, 1);
  ASSERT_TRUE(ring->read(at, frame, lost));
  check(frame);
  for (uint64_t number = 2; number <= 10'000; ++number)
    pass(*ring, number);
  EXPECT_FALSE(ring->read(at, frame, lost)) << "goes on with the newest";
  pass(*ring, 10'001);
  ASSERT_TRUE(ring->read(at, frame, lost));
  check(frame);
  EXPECT_EQ(lost, 9'999u);
  ring->unwatch();
  EXPECT_FALSE(ring->watched());
}

TEST(MonitorRing, FramesAreWholeWhileTheWorkerGoesOn)
{
  constexpr uint64_t frames = 300'000;
  const auto ring = std::make_unique<monitor_ring>();
  monitor_ring::place at = ring->watch();
  pass(*ring, 1);
  std::atomic<bool> done{false};
  std::thread worker([&] {
    for (uint64_t number = 2; number <= frames; ++number)
      pass(*ring, number);
    done = true;
  });
  watched_frame frame;
  uint64_t lost = 0, read = 0;
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
