// The vendor tag in and out of frames, byte by byte.
#include "tests/support/records_fixture.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

const std::string default_cid = "VELTRONA: eth 3/port1:0";

// Record and payload length as the record's own fields say.
uint32_t record_length(const byte_string& record)
{
  uint32_t length;
  std::memcpy(&length, &record[48], sizeof length);
  return length;
}

// What a frame should look like: `frame` with other tags, everything else as it came.
byte_string with_tags(test_frame frame, std::vector<test_tag> tags)
{
  frame.tags = std::move(tags);
  return frame.build();
}

class VendorTag : public testing::Test {
protected:
  VendorTag() { bridge.port(1, 3, 0); }
  test_bridge bridge;
  const test_tag vsa{0x0105, vendor_value(default_cid, "")};
};

TEST_F(VendorTag, GoesBehindTheLastTag)
{
  const test_frame frame{.tags = {{0x0101, "isp"}, {0x0103, "abcd"}}, .trailer = {1, 2, 3}};
  EXPECT_EQ(process(*bridge, frame.build()), with_tags(frame, {{0x0101, "isp"}, {0x0103, "abcd"}, vsa}));
}

TEST_F(VendorTag, GoesBeforeEndOfList)
{
  const test_frame frame{.tags = {{0x0101, ""}, {0, ""}}};
  EXPECT_EQ(process(*bridge, frame.build()), with_tags(frame, {{0x0101, ""}, vsa, {0, ""}}));
  const test_frame only{.tags = {{0, ""}}};
  EXPECT_EQ(process(*bridge, only.build()), with_tags(only, {vsa, {0, ""}}));
}

TEST_F(VendorTag, GoesIntoAnEmptyPayload)
{
  const test_frame frame{.tags = {}, .trailer = {0xde, 0xad, 0xbe, 0xef, 0x00}};
  EXPECT_EQ(process(*bridge, frame.build()), with_tags(frame, {vsa}));
}

TEST_F(VendorTag, GoesBeforeAFirstTagThatDoesNotFit)
{
  // Of an empty payload, one that ends in the tag's header, one that ends in its value.
  const test_tag first{0x0101, "isp"};
  for (const int payload : {0, 1, 3, 4, 6}) {
    const test_frame frame{.tags = {first}, .trailer = {1, 2, 3}, .payload_length = payload};
    test_frame expected{.tags = {vsa, first}, .trailer = frame.trailer};
    expected.payload_length = payload + static_cast<int>(vsa.value.size()) + 4;
    EXPECT_EQ(process(*bridge, frame.build()), expected.build()) << payload;
  }
}

TEST_F(VendorTag, ReplacesTheOneThereInPlace)
{
  for (const std::string& old : {std::string("x"), std::string(90, 'y'), vendor_value(default_cid, "")}) {
    const test_frame frame{.code = 0x19, .tags = {{0x0101, ""}, {0x0105, old}, {0x0103, "uniq"}}};
    EXPECT_EQ(process(*bridge, frame.build()), with_tags(frame, {{0x0101, ""}, vsa, {0x0103, "uniq"}})) << old.size();
  }
}

TEST_F(VendorTag, ReplacedAsLastTagLeavesWhatFollowedAsThePadding)
{
  // The bytes moved behind a last tag begin with the old tag itself; only as many as the padding was are sent.
  const test_frame frame{.tags = {{0x0105, "old!"}}, .trailer = byte_string(6, 0)};
  byte_string expected = with_tags(frame, {vsa});
  const byte_string old{0x01, 0x05, 0x00, 0x04, 'o', 'l'};
  std::copy(old.begin(), old.end(), expected.end() - 6);
  EXPECT_EQ(process(*bridge, frame.build()), expected);
}

TEST_F(VendorTag, SubOptionsFollowTheFlags)
{
  const auto inserted = [&](uint32_t circuit, uint32_t remote) {
    bridge->vsa_insert_circuit_id = circuit;
    bridge->vsa_insert_remote_id = remote;
    const byte_string back = process(*bridge, test_frame{.tags = {}}.build());
    return std::string(back.begin() + static_cast<long>(test_frame{}.tags_offset()) + 8, back.end());
  };
  using namespace std::string_literals;
  EXPECT_EQ(inserted(0, 0), "");
  EXPECT_EQ(inserted(0, 1), "\x02\x00"s);
  EXPECT_EQ(inserted(1, 0), "\x01\x17" + default_cid);
  EXPECT_EQ(inserted(7, 9), "\x01\x17" + default_cid + "\x02\x00"s);
}

TEST_F(VendorTag, IsTakenOutOfServerFrames)
{
  const test_frame frame{.code = 0x07, .tags = {{0x0102, "ac"}, {0x0105, "anything"}, {0x0104, "cookie"}}};
  EXPECT_EQ(process(*bridge, frame.build()), with_tags(frame, {{0x0102, "ac"}, {0x0104, "cookie"}}));
  bridge->vsa_mode = 0;
  EXPECT_EQ(process(*bridge, frame.build()), frame.build());
}

TEST_F(VendorTag, TakenOutAsLastTagCutsTheEnd)
{
  const test_frame frame{.code = 0x65, .tags = {{0x0102, "ac"}, {0x0105, "anything"}}};
  EXPECT_EQ(process(*bridge, frame.build()), with_tags(frame, {{0x0102, "ac"}}));
}

TEST_F(VendorTag, ThatClaimsMoreThanThePayloadIsDropped)
{
  byte_string record = test_frame{.code = 0x07, .tags = {{0x0105, "abcd"}}}.build();
  record[test_frame{}.tags_offset() + 3] = 60;
  EXPECT_TRUE(process(*bridge, record).empty());
  EXPECT_EQ(bridge->stats.pado, 1u);  // it had been accepted
  EXPECT_EQ(bridge->stats.malformed + bridge->stats.dropped, 0u);
}

TEST_F(VendorTag, ThatIsNotWholeInThePayloadIsNotReplaced)
{
  const test_tag first{0x0105, "abcd"};
  for (const int payload : {0, 3, 4, 7}) {
    const test_frame frame{.tags = {first, {0x0101, ""}}, .payload_length = payload};
    test_frame expected{.tags = {vsa, first, {0x0101, ""}}};
    expected.payload_length = payload + static_cast<int>(vsa.value.size()) + 4;
    EXPECT_EQ(process(*bridge, frame.build()), expected.build()) << payload;
  }
}

TEST_F(VendorTag, FitsToTheLastByteOfTheLargestPdu)
{
  const test_frame frame{.tags = {{0x0101, ""}}};
  const byte_string full = process(*bridge, frame.build());
  bridge->max_pdu = static_cast<uint32_t>(full.size()) - 107;
  EXPECT_EQ(process(*bridge, frame.build()), full);
  bridge->max_pdu -= 1;
  EXPECT_EQ(process(*bridge, frame.build()).size(), frame.build().size());
}

TEST_F(VendorTag, ErrorAnswerGoesBackToTheClient)
{
  bridge->max_pdu = 50;
  for (const auto& [code, answer] : {std::pair<uint8_t, uint8_t>{0x09, 0x07}, {0x19, 0x65}}) {
    const test_frame frame{.code = code, .tags = {{0x0101, "service"}}, .session_id = 0x1234};
    byte_string expected = frame.build();
    const size_t e = frame.ethertype_offset();
    std::memset(&expected[e + 12], 0xff, expected.size() - e - 12);
    std::memcpy(&expected[107], &frame.source[0], 6);
    const unsigned char local[6] = {0x02, 0x00, 0x5e, 0x10, 0x00, 0x01};
    std::memcpy(&expected[113], local, 6);
    expected[e + 3] = answer;
    const unsigned char payload[] = {0x00, 0x04, 0x02, 0x03, 0x00, 0x00};
    std::memcpy(&expected[e + 6], payload, sizeof payload);
    std::memcpy(&expected[90], &expected[74], 16);
    expected[90] = 0;
    std::strcpy(reinterpret_cast<char*>(&expected[74]), "br0_pppoe");
    EXPECT_EQ(process(*bridge, frame.build()), expected);
    EXPECT_EQ(record_length(expected), expected.size());
  }
}

TEST_F(VendorTag, LongIdentifiersAreCutAt63)
{
  struct long_identifiers final : identifier_source {
    void circuit_id(pppoeia_bridge&, pppoeia_port&, uint16_t, identifier& id) override
    {
      std::memset(id.text, 'c', 100);
      id.text[100] = '\0';
    }
    void remote_id(pppoeia_bridge&, pppoeia_port&, uint16_t, identifier& id) override { id.bin.assign(70, 0); }
  } identifiers;
  frame_services services{identifiers, nullptr};
  const test_frame frame{.tags = {}};
  EXPECT_EQ(process(*bridge, frame.build(), services),
            with_tags(frame, {{0x0105, vendor_value(std::string(63, 'c'), std::string(63, '\0'))}}));
}

}  // namespace
