// When the log tells that a port drops frames, and when that it is over.
#include "platform/kvbridge/record_header.h"
#include "pppoeia/status/bridge_status.h"
#include "pppoeia/status/drop_alarm.h"
#include "tests/support/syslog_capture.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DropAlarm : public testing::Test {
protected:
  DropAlarm() : bridge(bridge_statuses::open("br0", 8))
  {
    syslog_take();
    alarm.look(second);
  }
  ~DropAlarm() override { bridge_statuses::close(bridge); }

  void drop(int count, uint16_t port = 8)
  {
    unsigned char record[kernel_header::size + 60] = {};
    record[kernel_header::size + 11] = 7;
    for (int i = 0; i < count; ++i)
      bridge->frame_done({record, sizeof record, sizeof record}, {.what = fate::role, .code = 0x07, .port = port}, 1);
  }
  // What is told at the next looks, one a second.
  std::vector<std::string> told(int seconds = 1)
  {
    for (int i = 0; i < seconds; ++i)
      alarm.look(++second);
    return syslog_take_texts();
  }

  bridge_status* bridge;
  drop_alarm alarm{10};
  uint64_t second = 1000;
};

TEST_F(DropAlarm, IsToldOnceAndWhenItIsOver)
{
  drop(6);
  EXPECT_THAT(told(30), IsEmpty());
  drop(5);
  alarm.look(second);
  EXPECT_THAT(told(0), IsEmpty()) << "once a second";
  const auto begins = ElementsAre("<br0> Port 8 drops frames, 11 in a minute: the port's side may not send this code."
                                  " The last was from 00:00:00:00:00:07.");
  EXPECT_THAT(told(), begins);
  drop(100);
  EXPECT_THAT(told(10), IsEmpty());
  drop(5);
  EXPECT_THAT(told(50), IsEmpty());
  EXPECT_THAT(told(), ElementsAre("<br0> Port 8 drops hardly a frame any more, there were 116."));
  EXPECT_THAT(told(300), IsEmpty());
  drop(11);
  EXPECT_THAT(told(), begins);
  const std::weak_ptr gone = bridge_statuses::all()[0];
  bridge_statuses::close(std::exchange(bridge, nullptr));
  EXPECT_THAT(told(), IsEmpty());
  EXPECT_TRUE(gone.expired());
}

TEST_F(DropAlarm, CountsAMinuteAndAPort)
{
  for (int i = 0; i < 10; ++i) {
    drop(5);
    drop(5, 4);
    second += 30;  // nobody looked
    EXPECT_THAT(told(), IsEmpty()) << "10 in a minute are borne";
  }
  drop(11, 0);
  EXPECT_THAT(told(), IsEmpty()) << "of no port";
  alarm = drop_alarm(0);
  drop(1000);
  EXPECT_THAT(told(), IsEmpty());
}

}  // namespace
