#include "base/line_ring.h"
#include "base/packed.h"

#include <algorithm>
#include <deque>
#include <gtest/gtest.h>
#include <random>
#include <string>

namespace {

struct kept_line {
  int priority;
  uint32_t lost_before;
  std::string text;
};

// Lines of random lengths through a small ring, beside a queue that cannot be wrong.
TEST(LineRing, GivesBackWhatItWasGivenInOrder)
{
  std::mt19937 random(7);
  constexpr size_t bytes = 200;
  line_ring ring(bytes);
  std::deque<kept_line> model;
  size_t refused = 0;
  for (uint32_t turn = 0; turn < 100'000; ++turn) {
    const std::string text(random() % 90, static_cast<char>('a' + turn % 26));
    if (random() % 2 == 0 && ring.fits(text.size())) {
      ring.push(static_cast<int>(turn % 8), turn, text);
      model.push_back({static_cast<int>(turn % 8), turn, text});
    } else if (random() % 2 == 0 && !model.empty()) {
      const line_ring::entry oldest = ring.front();
      ASSERT_EQ(oldest.text, model.front().text);
      ASSERT_EQ(oldest.priority, model.front().priority);
      ASSERT_EQ(oldest.lost_before, model.front().lost_before);
      ring.pop();
      model.pop_front();
    }
    ASSERT_EQ(ring.count(), model.size());
    refused += !ring.fits(90);
  }
  EXPECT_GT(refused, 10'000u) << "the ring was hardly ever full";
}

// Beside its text each line takes a header of twelve bytes and a NUL.
TEST(LineRing, HoldsLinesToItsLastByteWhereverTheyLie)
{
  constexpr size_t bytes = 100, beside = 13, longest = bytes - beside;
  const auto most_that_fits = [](const line_ring& ring) {
    int length = -1;
    while (ring.fits(static_cast<size_t>(length + 1)))
      ++length;
    return length;
  };
  for (size_t length = 0; length <= longest - beside; ++length) {
    SCOPED_TRACE(length);
    const int first = static_cast<int>(length);
    line_ring ring(bytes);
    ring.push(6, 0, std::string(length, 'x'));
    EXPECT_EQ(most_that_fits(ring), static_cast<int>(longest - beside) - first) << "behind it";
    ring.push(6, 0, std::string(longest - beside - length, 'y'));
    EXPECT_EQ(most_that_fits(ring), -1);
    ring.pop();
    EXPECT_EQ(most_that_fits(ring), first) << "in front of the others";
    ring.push(6, 0, "");
    EXPECT_EQ(most_that_fits(ring), std::max(first - static_cast<int>(beside), -1)) << "between";
    ring.pop();
    EXPECT_EQ(most_that_fits(ring), static_cast<int>(longest - beside)) << "behind the one at the beginning";
    ring.pop();
    EXPECT_EQ(most_that_fits(ring), static_cast<int>(longest)) << "in an empty one";
  }
}

TEST(Packed, AnAddressThatIsCutGoesOnWithZeros)
{
  const unsigned char bytes[] = {1, 2, 3, 4, 5, 6, 7, 8};
  for (const auto& [at, value] : {std::pair<size_t, uint64_t>{0, 0x010203040506},
                                  {2, 0x030405060708},
                                  {3, 0x040506070800},
                                  {7, 0x080000000000},
                                  {8, 0}})
    EXPECT_EQ(be48_at(bytes, at), value) << at;
}

}  // namespace
