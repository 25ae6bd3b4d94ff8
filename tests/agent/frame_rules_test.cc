// Which frames pass, which are dropped, and what is counted.
#include "tests/support/records_fixture.h"
#include "tests/support/syslog_capture.h"

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

TEST(FrameRules, EachCodeHasItsCounter)
{
  test_bridge bridge;
  pppoeia_port& port = bridge.port(1, 3, 0);
  const uint8_t codes[] = {padi, padr, pado, pads, padt, other};
  for (const uint8_t code : codes)
    process(*bridge, test_frame{.code = code}.build());
  const pppoeia_stats expected{1, 1, 1, 1, 1, 0, 1, 0, 0};
  EXPECT_EQ(0, std::memcmp(&expected, &bridge->stats, sizeof expected));
  EXPECT_EQ(0, std::memcmp(&expected, &port.stats, sizeof expected));
}

TEST(FrameRules, DisabledBridgeGivesBackAnythingUncounted)
{
  test_bridge bridge;
  bridge->disabled = 1;
  test_frame frame;
  frame.port = 77;  // no such port
  const byte_string record = frame.build();
  EXPECT_EQ(process(*bridge, record), record);
  EXPECT_EQ(bridge->stats.unchanged, 0u);
}

TEST(FrameRules, DisabledPortForwardsUnchangedEvenAnUntrustedTag)
{
  test_bridge bridge;
  pppoeia_port& port = bridge.port(1, 0, 1);
  const byte_string record = test_frame{.tags = {{0x0105, vendor_value("spoof", "")}}}.build();
  EXPECT_EQ(process(*bridge, record), record);
  EXPECT_EQ(port.stats.unchanged, 1u);
  EXPECT_EQ(port.stats.padi, 0u);
}

TEST(FrameRules, PortsOutOfRangeOrAbsentAreDropped)
{
  test_bridge bridge(4);
  bridge.port(3, 1, 0);
  bridge.port(4, 1, 0);  // the slot beyond the last valid id
  for (const uint16_t port : {uint16_t{0}, uint16_t{1}, uint16_t{4}, uint16_t{5}, uint16_t{65535}})
    EXPECT_TRUE(process(*bridge, test_frame{.port = port}.build()).empty()) << port;
  EXPECT_FALSE(process(*bridge, test_frame{.port = 3}.build()).empty());
}

TEST(FrameRules, APortFieldCutInHalfGoesOnWithZeros)
{
  test_bridge bridge;
  bridge.port(3, 1, 0);
  bridge->vlan_enabled.clear(0);  // what comes from a port that is there goes back unchanged
  byte_string record = test_frame{.port = 3}.build();
  record.resize(53);
  record[48] = 53;
  EXPECT_EQ(process(*bridge, record), record);
}

TEST(FrameRules, VlanCheckTakesTheOutermostTagAndComesBeforeTheEtherType)
{
  test_bridge bridge;
  pppoeia_port& port = bridge.port(1, 1, 0);
  bridge->vlan_enabled.set(100);
  const byte_string inner = test_frame{.vlan_tags = {0x88a8'0065, 0x8100'0064}}.build();
  EXPECT_EQ(process(*bridge, inner), inner);  // VID 101 is not enabled: forwarded as it came
  EXPECT_EQ(port.stats.padi, 0u);
  EXPECT_GT(process(*bridge, test_frame{.vlan_tags = {0x88a8'0064, 0x8100'0065}}.build()).size(), inner.size());

  byte_string other_ethertype = test_frame{.vlan_tags = {0x8100'0065}}.build();
  other_ethertype[107 + 16] = 0x08;
  EXPECT_EQ(process(*bridge, other_ethertype), other_ethertype);
  other_ethertype[107 + 15] = 0x64;
  EXPECT_TRUE(process(*bridge, other_ethertype).empty());
}

TEST(FrameRules, PortKindsOneAndFiveSkipTheVlanCheck)
{
  for (const uint32_t kind : {0u, 1u, 4u, 5u, 7u}) {
    test_bridge bridge;
    bridge.port(1, 1, 0).port_info_extra = kind;
    process(*bridge, test_frame{.vlan_tags = {0x8100'0007}}.build());
    EXPECT_EQ(bridge->stats.padi, kind == 1 || kind == 5 ? 1u : 0u) << kind;
  }
}

TEST(FrameRules, DepthOfVlanTags)
{
  // An S-Tag and two C-Tags behind it, or two C-Tags, are seen through; one more is not.
  const auto counted = [](std::vector<uint32_t> tags) {
    test_bridge bridge;
    bridge.port(1, 1, 0).port_info_extra = 1;
    process(*bridge, test_frame{.vlan_tags = std::move(tags)}.build());
    return bridge->stats.padi;
  };
  EXPECT_EQ(counted({0x88a8'0001}), 1u);
  EXPECT_EQ(counted({0x88a8'0001, 0x8100'0001, 0x8100'0001}), 1u);
  EXPECT_EQ(counted({0x88a8'0001, 0x8100'0001, 0x8100'0001, 0x8100'0001}), 0u);
  EXPECT_EQ(counted({0x8100'0001, 0x8100'0001}), 1u);
  EXPECT_EQ(counted({0x8100'0001, 0x8100'0001, 0x8100'0001}), 0u);
  EXPECT_EQ(counted({0x8100'0001, 0x88a8'0001}), 0u);
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

TEST(FrameRules, VendorTagBehindEndOfListIsNoTag)
{
  test_bridge bridge;
  bridge.port(1, 1, 1);
  EXPECT_FALSE(process(*bridge, test_frame{.tags = {{0x0101, ""}, {0, ""}, {0x0105, "x"}}}.build()).empty());
}

TEST(FrameRules, VendorTagBehindAnEmptyPayloadIsFound)
{
  test_bridge bridge;
  bridge.port(1, 1, 1);
  const test_frame frame{.tags = {}, .trailer = {0x01, 0x05, 0xff, 0xff}};
  EXPECT_TRUE(process(*bridge, frame.build()).empty());
  EXPECT_EQ(bridge->stats.dropped, 1u);
  // Three of its four header bytes are no tag.
  const test_frame cut{.tags = {}, .trailer = {0x01, 0x05, 0xff}};
  EXPECT_FALSE(process(*bridge, cut.build()).empty());
}

TEST(FrameRules, PayloadBeyondTheRecordIsMalformed)
{
  test_bridge bridge;
  pppoeia_port& port = bridge.port(1, 1, 0);
  EXPECT_TRUE(process(*bridge, test_frame{.payload_length = 5}.build()).empty());
  EXPECT_EQ(port.stats.malformed, 1u);
  EXPECT_FALSE(process(*bridge, test_frame{.payload_length = 3}.build()).empty());
  EXPECT_EQ(port.stats.padi, 1u);
}

TEST(FrameRules, RecordLengthMustBeTheReceivedCount)
{
  test_bridge bridge;
  bridge->disabled = 1;  // a record that passes this test comes back
  byte_string record = test_frame{}.build();
  record[48] ^= 1;
  EXPECT_TRUE(process(*bridge, record).empty());
  for (size_t length = 0; length < 120; ++length) {
    byte_string cut(test_frame{}.build());
    cut.resize(length);
    if (length >= 52)
      std::memcpy(&cut[48], &length, 4);
    EXPECT_EQ(process(*bridge, cut).size(), length >= 52 ? length : 0) << length;
  }
}

}  // namespace
