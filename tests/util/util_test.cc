// Texts of addresses, ranges and port masks; measuring by name.
#include "rte/BLL/util/kv_util.h"
#include "rte/BLL/util/measure_time.h"
#include "rte/BLL/util/port_mask_util.h"
#include "rte/BLL/util/range_number.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <random>
#include <set>
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
  EXPECT_TRUE(CKvUtil::stringToIpv6("ffff:ffff:ffff:ffff:ffff:ffff:255.255.255.254", v6));  // none is longer
  EXPECT_EQ(v6[15], 254);
  uint16_t type = 0;
  for (const auto& [text, back] :
       {std::pair("0x88A8", "0x88a8"), {"34984", "0x88a8"}, {"0Xffff", "0xffff"}, {"9", "0x0009"}}) {
    EXPECT_TRUE(CKvUtil::stringToEtherType(text, type));
    EXPECT_EQ(CKvUtil::etherTypeToString(type), back);
  }
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
  EXPECT_FALSE(CKvUtil::stringToIpv4(std::string("5.6.7.8\0", 8), v4));
  EXPECT_EQ(CKvUtil::ipv4ToString(v4), "1.2.3.4");
  uint16_t type = 7;
  for (const char* text : {"", "0x", "0x10000", "65536", "-1", "88a8"})
    EXPECT_FALSE(CKvUtil::stringToEtherType(text, type)) << text;
  EXPECT_EQ(type, 7);
}

// Random lists beside a set of their numbers; as ranges, and as the bits of a mask.
TEST(Range, AgreesWithASetOfNumbers)
{
  std::mt19937 engine(3);
  const auto random = [&](uint32_t below) { return static_cast<uint32_t>(engine() % below); };
  for (int round = 0; round < 2000; ++round) {
    std::set<uint32_t> model;
    std::string text;
    for (uint32_t items = 1 + random(5); items > 0; --items) {
      const uint32_t first = 1 + random(40), last = std::min<uint32_t>(first + random(4), 40);
      text += (text.empty() ? "" : " , ") + std::to_string(first) + (first < last ? " - " + std::to_string(last) : "");
      for (uint32_t number = first; number <= last; ++number)
        model.insert(number);
    }
    CRangeNumber set;
    CRangeIntegerNumber numbers(1, 40);
    std::vector<uint32_t> all;
    std::array<uint8_t, 5> mask, bits{};
    mask.fill(0xff);
    ASSERT_TRUE(set.parse(text) && numbers.parse(text) && CPortMaskUtil::fromString(text, mask)) << text;
    ASSERT_TRUE(numbers.expand(all, model.size()) && !numbers.expand(all, model.size() - 1));
    ASSERT_TRUE(std::ranges::equal(all, model)) << text;
    for (uint32_t number = 0; number < 50; ++number) {
      ASSERT_EQ(set.contains(number), model.contains(number)) << text << " " << number;
      ASSERT_EQ(CPortMaskUtil::test(mask, number), model.contains(number)) << text << " " << number;
      ASSERT_EQ(CPortMaskUtil::set(bits, number), number >= 1 && number <= 40);
      ASSERT_EQ(CPortMaskUtil::clear(bits, number), number >= 1 && number <= 40);
      if (model.contains(number))
        CPortMaskUtil::set(bits, number);
    }
    ASSERT_EQ(bits, mask);
    ASSERT_EQ(set.count(), model.size());
    ASSERT_EQ(CPortMaskUtil::count(mask), model.size());
    ASSERT_EQ(CPortMaskUtil::toString(mask), set.toString());
    for (size_t i = 1; i < set.ranges().size(); ++i)
      ASSERT_GT(set.ranges()[i].first, set.ranges()[i - 1].last + 1) << text;
  }
}

TEST(Range, RefusesAndKeepsWhatItHad)
{
  CRangeIntegerNumber set(1, 4094);
  ASSERT_TRUE(set.parse("5"));
  for (const char* text : {"", ",", "1,", "a", "4-1", "0", "1-4095", "1-2-3", "-1", "1--2", "99999999999999999999"})
    EXPECT_FALSE(set.parse(text)) << text;
  EXPECT_EQ(set.toString(), "5");
  EXPECT_TRUE(set.parse("7, 1-4 ,5,20-30,25-40,4094"));
  EXPECT_EQ(set.toString(), "1-5,7,20-40,4094");
  CRangeNumber every;
  EXPECT_TRUE(every.parse("0-18446744073709551614"));
  EXPECT_EQ(every.count(), UINT64_MAX);
  EXPECT_TRUE(every.parse("0-18446744073709551613"));
  EXPECT_EQ(every.count(), UINT64_MAX - 1);
  EXPECT_TRUE(every.parse("3,0-18446744073709551615"));
  EXPECT_EQ(every.count(), UINT64_MAX);
}

TEST(Range, Interfaces)
{
  CRangeInterfaceNumber set;
  EXPECT_TRUE(set.parse("2/1-2/8,3/4,2/9-10"));
  EXPECT_EQ(set.toString(), "2/1-2/10,3/4");
  EXPECT_TRUE(CRangeInterfaceNumber().parse("0/0,255/65535"));
  EXPECT_TRUE(set.contains(2, 10));
  EXPECT_FALSE(set.contains(3, 1));
  for (const char* text : {"", "4", "2/1-3/1", "2/8-2/1", "x/1-2", "2/", "/1", "256/1", "1/65536", "1/1-x/2"})
    EXPECT_FALSE(set.parse(text)) << text;
  EXPECT_EQ(set.toString(), "2/1-2/10,3/4");
}

TEST(PortMask, TextsBeyondItAreRefused)
{
  std::array<uint8_t, 2> mask{0x0d, 0x80};
  for (const char* text : {"1,17", "0", ""})
    EXPECT_FALSE(CPortMaskUtil::fromString(text, mask)) << text;
  EXPECT_EQ(CPortMaskUtil::toString(mask), "1,3-4,16");
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
  EXPECT_EQ(message("on"), "Measuring is on.\n");
  std::thread other([] { const measureTime_t scope("work"); });
  {
    const measureTime_t scope("work");
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  other.join();
  EXPECT_EQ(message("off"), "Measuring is off.\n");
  {
    const measureTime_t off("never");
  }
  unsigned long all = 0, mean = 0, longest = 0;
  char rest = 0;
  const std::string shown = message("show");
  EXPECT_EQ(std::sscanf(shown.c_str(), "work: 2 times, %lu us in all, %lu us mean, %lu us longest\n%c", &all, &mean,
                        &longest, &rest),
            3)
      << shown;
  EXPECT_GE(longest, 2000u);
  EXPECT_GE(all, longest);
  EXPECT_EQ(mean, all / 2);
  EXPECT_EQ(message("reset"), "Measurements forgotten.\n");
  EXPECT_EQ(message("show"), "Nothing measured.\n");
  EXPECT_EQ(message("later"), "measureTime takes on, off, show or reset.\n");
}

}  // namespace
