#include "base/descriptor.h"
#include "platform/kvbridged/loop.h"

#include <gtest/gtest.h>

#include <string>
#include <sys/eventfd.h>
#include <unistd.h>

namespace {

using namespace kvbridged;

// All are ready at the same time, and served by their numbers.
TEST(Loop, ServesNobodyWhoIsForgottenAndNobodyAfterTheEnd)
{
  const descriptor ready[] = {descriptor(eventfd(1, 0)), descriptor(eventfd(1, 0)), descriptor(eventfd(1, 0)),
                              descriptor(eventfd(1, 0))};
  loop events;
  std::string called;
  events.watch(ready[0].get(), [&] { called += "0", events.forget(ready[1].get()); });
  events.watch(ready[1].get(), [&] { called += "1"; });
  events.watch(ready[2].get(), [&] { called += "2", events.end(); });
  events.watch(ready[3].get(), [&] { called += "3"; });
  events.run();
  EXPECT_EQ(called, "02");
}

// A byte that is left in a pipe whose other end is closed is still to be had.
TEST(Loop, ADescriptorThatHasNothingMoreToGiveIsGone)
{
  int plain[2], told[2];
  ASSERT_EQ(pipe(plain) | pipe(told), 0);
  const descriptor reader(plain[0]), last(told[0]);
  EXPECT_EQ(write(told[1], "ab", 2), 2);
  close(plain[1]);
  close(told[1]);
  loop events;
  std::string called;
  events.watch(reader.get(), [&] { called += "."; });
  const auto take = [&] {
    char byte;
    EXPECT_EQ(read(last.get(), &byte, 1), 1);
    called += byte;
  };
  events.watch(last.get(), take, [&] { called += "!", events.end(); });
  events.run();
  EXPECT_EQ(called, ".ab!");
}

}  // namespace
