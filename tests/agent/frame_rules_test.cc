// Which frames pass, which are dropped, and what is counted: by role, switch and trust. Whatever else a frame may hold
// is tried beside the model.
#include "tests/support/records_fixture.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

constexpr uint8_t padi = 0x09, pado = 0x07, padr = 0x19, pads = 0x65, padt = 0xa7, other = 0x42;

TEST(FrameRules, RoleOfThePortDecidesByCode)
{
  struct row {
    int32_t state;
    uint8_t code;
    bool passes;
  };
  const row rows[] = {{1, padi, true},  {1, padr, true},   {1, padt, true},  {1, pado, false},
                      {1, pads, false}, {1, other, false}, {2, pado, true},  {2, pads, true},
                      {2, padt, true},  {2, padi, false},  {2, padr, false}, {2, other, false},
                      {3, padi, true},  {3, pado, true},   {3, other, true}, {-7, padi, true}};
  for (const row& row : rows) {
    test_bridge bridge;
    pppoeia_port& port = bridge.port(1, row.state, 0);
    const byte_string back = process(*bridge, test_frame{.code = row.code}.build());
    EXPECT_EQ(!back.empty(), row.passes) << row.state << " " << int{row.code};
    EXPECT_EQ(bridge->stats.dropped, row.passes ? 0u : 1u);
    EXPECT_EQ(0, std::memcmp(&bridge->stats, &port.stats, sizeof port.stats));
  }
}

TEST(FrameRules, EachOutcomeHasItsCounterOfBridgeAndPort)
{
  test_bridge bridge;
  pppoeia_port& port = bridge.port(1, 3, 0);
  for (const uint8_t code : {padi, padr, pado, pads, padt, other})
    process(*bridge, test_frame{.code = code}.build());
  EXPECT_TRUE(process(*bridge, test_frame{.payload_length = 5}.build()).empty());  // one more than there is
  port.state = 2;
  EXPECT_TRUE(process(*bridge, test_frame{.code = padi}.build()).empty());
  port.state = 0;
  process(*bridge, test_frame{}.build());
  const pppoeia_stats expected{1, 1, 1, 1, 1, 1, 1, 1, 1};
  EXPECT_EQ(0, std::memcmp(&expected, &bridge->stats, sizeof expected));
  EXPECT_EQ(0, std::memcmp(&expected, &port.stats, sizeof expected));
}

TEST(FrameRules, WhatIsSwitchedOffGivesBackAnything)
{
  test_bridge bridge;
  bridge.port(1, 0, 1);
  const byte_string untrusted = test_frame{.tags = {{0x0105, vendor_value("spoof", "")}}}.build();
  EXPECT_EQ(process(*bridge, untrusted), untrusted);
  bridge->disabled = 1;
  const byte_string nowhere = test_frame{.port = 77}.build();
  EXPECT_EQ(process(*bridge, nowhere), nowhere);
  pppoeia_stats expected{};
  expected.unchanged = 1;  // that of the port
  EXPECT_EQ(0, std::memcmp(&expected, &bridge->stats, sizeof expected));
}

TEST(FrameRules, UntrustedVendorTagIsDroppedWhateverTheCodeAndMode)
{
  for (const uint8_t code : {padi, pado, padt, other}) {
    test_bridge bridge;
    bridge.port(1, 3, 1);
    bridge->vsa_mode = 0;
    const test_frame frame{.code = code, .tags = {{0x0101, ""}, {0x0105, "x"}}};
    EXPECT_TRUE(process(*bridge, frame.build()).empty());
    EXPECT_EQ(bridge->stats.dropped, 1u);
    EXPECT_EQ(bridge->stats.padi + bridge->stats.pado + bridge->stats.padt + bridge->stats.unknown_code, 0u);
  }
}

TEST(FrameRules, VendorTagBehindAnEmptyPayloadIsOneWhenItsHeaderIsWhole)
{
  test_bridge bridge;
  bridge.port(1, 1, 1);
  const test_frame whole{.tags = {}, .trailer = {0x01, 0x05, 0xff, 0xff}};
  const test_frame cut{.tags = {}, .trailer = {0x01, 0x05, 0xff}};
  EXPECT_TRUE(process(*bridge, whole.build()).empty());
  EXPECT_FALSE(process(*bridge, cut.build()).empty());
}

}  // namespace
