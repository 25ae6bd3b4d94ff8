#include "platform/kvbridged/settings.h"

#include <gtest/gtest.h>

namespace {

using namespace kvbridged;

TEST(Settings, OfABridgeAndItsPorts)
{
  std::vector<bridge_settings> bridges{bridge_parse("br0"), bridge_parse("br1,stag=0x9100,mtu=1600")};
  EXPECT_EQ(bridges[0].stag_ethertype, 0x88a8);
  EXPECT_EQ(bridges[0].mtu, 1500);
  EXPECT_EQ(bridges[1].stag_ethertype, 0x9100);
  EXPECT_EQ(bridges[1].mtu, 1600);
  port_parse("br1,1,subscriber,eth1", bridges);
  port_parse("br1,65535,network,eth0,addresses=16384", bridges);
  EXPECT_TRUE(bridges[0].ports.empty());
  ASSERT_EQ(bridges[1].ports.size(), 2u);
  const port_settings& line = bridges[1].ports[0];
  const port_settings& uplink = bridges[1].ports[1];
  EXPECT_EQ(line.id, 1);
  EXPECT_FALSE(line.network);
  EXPECT_EQ(line.interface, "eth1");
  EXPECT_EQ(line.addresses, 1024u);
  EXPECT_EQ(uplink.id, 65535);
  EXPECT_TRUE(uplink.network);
  EXPECT_EQ(uplink.addresses, 16384u);
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
                           "br0,1,subscriber,eth1,addresses=2,addresses=3"})
    EXPECT_THROW(port_parse(text, bridges), fatal) << text;
  EXPECT_TRUE(bridges[0].ports.empty());
}

}  // namespace
