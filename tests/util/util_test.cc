// Texts of addresses, ranges and port masks; measuring by name.
#include "rte/BLL/util/kv_util.h"
#include "rte/BLL/util/measure_time.h"
#include "rte/BLL/util/port_mask_util.h"
#include "rte/BLL/util/range_integer_number.h"
#include "rte/BLL/util/range_interface_number.h"

#include <gtest/gtest.h>

#include <array>
#include <sstream>
#include <thread>

namespace {

TEST(KvUtil, AddressesThereAndBack)
{
  uint8_t mac[6] = {9, 9, 9, 9, 9, 9};
  EXPECT_TRUE(CKvUtil::stringToMac("0:1A-2b:3:44:ff", mac));
  EXPECT_EQ(CKvUtil::macToString(mac), "00:1a:2b:03:44:ff");
  uint8_t v4[4];
  EXPECT_TRUE(CKvUtil::stringToIpv4("10.1.2.30", v4));
  EXPECT_EQ(CKvUtil::ipv4ToString(v4), "10.1.2.30");
  uint8_t v6[16];
  EXPECT_TRUE(CKvUtil::stringToIpv6("2001:DB8:0::1", v6));
  EXPECT_EQ(CKvUtil::ipv6ToString(v6), "2001:db8::1");
  uint16_t type = 0;
  EXPECT_TRUE(CKvUtil::stringToEtherType("0x88A8", type));
  EXPECT_EQ(CKvUtil::etherTypeToString(type), "0x88a8");
}

TEST(KvUtil, WhatDoesNotParseLeavesTheOutput)
{
  uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
  for (const char* text : {"", "1:2:3:4:5", "1:2:3:4:5:6:7", "1:2:3:4:5:g", "001:2:3:4:5:6", "1:2:3:4:5:", ":::::"})
    EXPECT_FALSE(CKvUtil::stringToMac(text, mac)) << text;
  EXPECT_EQ(CKvUtil::macToString(mac), "01:02:03:04:05:06");
  uint8_t v4[4] = {1, 2, 3, 4};
  for (const char* text : {"", "1.2.3", "1.2.3.256", "1.2.3.4 ", "0x1.2.3.4"})
    EXPECT_FALSE(CKvUtil::stringToIpv4(text, v4)) << text;
  EXPECT_FALSE(CKvUtil::stringToIpv4(std::string(5000, '1'), v4));
  EXPECT_EQ(v4[0], 1);
  uint16_t type = 7;
  for (const char* text : {"", "0x", "0x10000", "65536", "-1", "88a8"})
    EXPECT_FALSE(CKvUtil::stringToEtherType(text, type)) << text;
  EXPECT_EQ(type, 7);
}

TEST(Range, JoinsAndCounts)
{
  CRangeNumber set;
  EXPECT_TRUE(set.parse("7, 1-4 ,5,20-30,25-40"));
  EXPECT_EQ(set.toString(), "1-5,7,20-40");
  EXPECT_EQ(set.count(), 27u);
  EXPECT_TRUE(set.contains(5));
  EXPECT_FALSE(set.contains(6));
  EXPECT_TRUE(set.parse("0-18446744073709551615"));
  EXPECT_EQ(set.count(), UINT64_MAX);
}

TEST(Range, RefusesAndKeepsWhatItHad)
{
  CRangeIntegerNumber set(1, 4094);
  ASSERT_TRUE(set.parse("5"));
  for (const char* text : {"", ",", "1,", "a", "4-1", "0", "1-4095", "1-2-3", "-1", "1--2", "99999999999999999999"})
    EXPECT_FALSE(set.parse(text)) << text;
  EXPECT_EQ(set.toString(), "5");
  std::vector<uint32_t> numbers{9};
  ASSERT_TRUE(set.parse("1-4000"));
  EXPECT_FALSE(set.expand(numbers, 100));
  EXPECT_EQ(numbers, (std::vector<uint32_t>{9}));
  ASSERT_TRUE(set.parse("1-2,4"));
  EXPECT_TRUE(set.expand(numbers, 100));
  EXPECT_EQ(numbers, (std::vector<uint32_t>{1, 2, 4}));
}

TEST(Range, Interfaces)
{
  CRangeInterfaceNumber set;
  EXPECT_TRUE(set.parse("2/1-2/8,3/4,2/9-10"));
  EXPECT_EQ(set.toString(), "2/1-2/10,3/4");
  EXPECT_TRUE(set.contains(2, 10));
  EXPECT_FALSE(set.contains(3, 1));
  for (const char* text : {"", "4", "2/1-3/1", "2/8-2/1", "x/1-2", "2/", "/1", "256/1", "1/65536", "1/1-x/2"})
    EXPECT_FALSE(set.parse(text)) << text;
  EXPECT_EQ(set.toString(), "2/1-2/10,3/4");
}

TEST(PortMask, BitsAndTexts)
{
  std::array<uint8_t, 2> mask{};
  EXPECT_TRUE(CPortMaskUtil::fromString("1-4,16", mask));
  EXPECT_EQ(mask[0], 0x0f);
  EXPECT_EQ(mask[1], 0x80);
  EXPECT_FALSE(CPortMaskUtil::fromString("1,17", mask));
  EXPECT_FALSE(CPortMaskUtil::fromString("0", mask));
  EXPECT_FALSE(CPortMaskUtil::set(mask, 0));
  EXPECT_TRUE(CPortMaskUtil::clear(mask, 2));
  EXPECT_EQ(CPortMaskUtil::toString(mask), "1,3-4,16");
  EXPECT_EQ(CPortMaskUtil::count(mask), 4u);
}

TEST(MeasureTime, ByNameWhileOn)
{
  const auto message = [](const char* value) {
    std::ostringstream out;
    measureTimeExtMsg("measureTime", value, out);
    return out.str();
  };
  {
    const measureTime_t off("never");
  }
  message("on");
  std::thread other([] { const measureTime_t scope("work"); });
  {
    const measureTime_t scope("work");
  }
  other.join();
  message("off");
  const std::string shown = message("show");
  EXPECT_EQ(shown.find("never"), std::string::npos);
  EXPECT_NE(shown.find("work: 2 times"), std::string::npos);
  message("reset");
  EXPECT_EQ(message("show"), "Nothing measured.\n");
}

}  // namespace
