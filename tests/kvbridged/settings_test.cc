#include "platform/kvbridged/settings.h"

#include <gtest/gtest.h>

namespace {

using namespace kvbridged;

TEST(Settings, EachFieldAtItsLimits)
{
  std::vector<bridge_settings> bridges{bridge_parse("tencharact,stag=0x600,mtu=68"),
                                       bridge_parse("b,mtu=9000,stag=65535"), bridge_parse("br0")};
  EXPECT_EQ(bridges[0].name, "tencharact");
  const auto numbers = [](const bridge_settings& bridge) {
    return std::pair<int, int>(bridge.stag_ethertype, bridge.mtu);
  };
  EXPECT_EQ(numbers(bridges[0]), std::pair(0x600, 68));
  EXPECT_EQ(numbers(bridges[1]), std::pair(65535, 9000));
  EXPECT_EQ(numbers(bridges[2]), std::pair(0x88a8, 1500));
  for (const char* text :
       {"br0,1,subscriber,eth1", "br0,65535,network,eth2,addresses=1", "br0,2,network,eth3,addresses=1000000"})
    port_parse(text, bridges);
  std::string ports;
  for (const port_settings& port : bridges[2].ports)
    ports += std::to_string(port.id) + (port.network ? " network " : " subscriber ") + port.interface + " " +
             std::to_string(port.addresses) + "\n";
  EXPECT_EQ(ports, "1 subscriber eth1 1024\n65535 network eth2 1\n2 network eth3 1000000\n");
  kernel_settings kernel;
  for (const char* text : {"eth1=1", "up=65535", "eth1=7"})
    port_number_parse(text, kernel);
  EXPECT_EQ(kernel.numbers, (decltype(kernel.numbers){{"eth1", 7}, {"up", 65535}}));
}

TEST(Settings, WhatIsNoneIsSaid)
{
  for (const char* text : {"", ",mtu=1500", "elevenchars", "a/b", "br0,mtu=67", "br0,mtu=9001",
                           "br0,mtu=", "br0,mtu=1500x", "br0,stag=0x5ff", "br0,stag=0x10000", "br0,mtu", "br0,speed=1"})
    EXPECT_THROW(bridge_parse(text), fatal) << text;
  std::vector<bridge_settings> bridges{bridge_parse("br0")};
  for (const char* text : {"", "br0,1,subscriber", "br1,1,subscriber,eth1", "br0,0,subscriber,eth1",
                           "br0,65536,network,eth1", "br0,1,server,eth1", "br0,1,subscriber,eth1,addresses=0",
                           "br0,1,subscriber,eth1,addresses=", "br0,1,subscriber,eth1,mtu=1500",
                           "br0,1,subscriber,eth1,addresses=2,addresses=3", "br0,1,subscriber,eth1,addresses=1000001"})
    EXPECT_THROW(port_parse(text, bridges), fatal) << text;
  EXPECT_TRUE(bridges[0].ports.empty());
  kernel_settings kernel;
  for (const char* text : {"", "eth1", "=1", "eth1=", "eth1=0", "eth1=65536", "eth1=1x"})
    EXPECT_THROW(port_number_parse(text, kernel), fatal) << text;
  EXPECT_TRUE(kernel.numbers.empty());
  for (const char* text :
       {"", "0", "20,40", "20,burst=0", "20,burst=", "-1", "20,burst=40,burst=50", "1000001", "20,burst=1000001"})
    EXPECT_THROW(padi_rate_parse(text), fatal) << text;
}

TEST(Settings, BurstOfPadiIsASecondsWorthUnlessGiven)
{
  EXPECT_EQ(padi_rate_parse("20").burst, 20u);
  const padi_rate given = padi_rate_parse("20,burst=1000000");
  EXPECT_EQ(given.burst, 1'000'000u);
  EXPECT_EQ(given.per_second, 20u);
}

}  // namespace
