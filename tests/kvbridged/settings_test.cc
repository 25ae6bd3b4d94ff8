#include "platform/kvbridged/settings.h"

#include <gtest/gtest.h>

namespace {

using namespace kvbridged;

TEST(Settings, WhatIsNoneIsSaid)
{
  for (const char* text : {"", ",mtu=1500", "elevenchars", "a/b", "br0,mtu=67", "br0,mtu=9001",
                           "br0,mtu=", "br0,mtu=1500x", "br0,stag=0x5ff", "br0,stag=0x10000", "br0,mtu", "br0,speed=1"})
    EXPECT_THROW(bridge_parse(text), fatal) << text;
  std::vector<bridge_settings> bridges{bridge_parse("br0")};
  for (const char* text : {"", "br0,1,subscriber", "br1,1,subscriber,eth1", "br0,0,subscriber,eth1",
                           "br0,65536,network,eth1", "br0,1,server,eth1", "br0,1,subscriber,eth1,addresses=0",
                           "br0,1,subscriber,eth1,addresses=", "br0,1,subscriber,eth1,mtu=1500",
                           "br0,1,subscriber,eth1,addresses=2,addresses=3"})
    EXPECT_THROW(port_parse(text, bridges), fatal) << text;
  EXPECT_TRUE(bridges[0].ports.empty());
  kernel_settings kernel;
  for (const char* text : {"", "eth1", "=1", "eth1=", "eth1=0", "eth1=65536", "eth1=1x"})
    EXPECT_THROW(port_number_parse(text, kernel), fatal) << text;
  EXPECT_TRUE(kernel.numbers.empty());
  for (const char* text : {"", "0", "20,40", "20,burst=0", "20,burst=", "-1", "20,burst=40,burst=50"})
    EXPECT_THROW(padi_rate_parse(text), fatal) << text;
}

TEST(Settings, BurstOfPadiIsASecondsWorthUnlessGiven)
{
  EXPECT_EQ(padi_rate_parse("20").burst, 20u);
  EXPECT_EQ(padi_rate_parse("20,burst=40").burst, 40u);
  EXPECT_EQ(padi_rate_parse("20,burst=40").per_second, 20u);
}

}  // namespace
