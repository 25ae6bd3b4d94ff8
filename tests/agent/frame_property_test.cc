// Properties that hold for every frame, tried on random ones of every tag layout. The seed is printed on failure.
#include "fuzz/frames/spoofing.h"
#include "tests/support/records_fixture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace {

using rng = std::mt19937;

unsigned below(rng& random, unsigned bound)
{
  return static_cast<unsigned>(random() % bound);
}

std::string random_text(rng& random, unsigned most)
{
  std::string text(below(random, most + 1), '\0');
  for (char& c : text)
    c = static_cast<char>(random());
  return text;
}

// A frame whose tags fit; without vendor tags unless `vendor`.
test_frame random_frame(rng& random, bool vendor)
{
  const uint16_t types[] = {0x0101, 0x0102, 0x0103, 0x0104, 0x0110, 0x0203, 0x4242, 0x0105};
  test_frame frame;
  frame.tags.clear();
  for (unsigned count = below(random, 6); count > 0; --count)
    frame.tags.push_back({types[below(random, vendor ? 8 : 7)], random_text(random, 40)});
  if (below(random, 4) == 0)
    frame.tags.push_back({0, ""});
  frame.session_id = static_cast<uint16_t>(random());
  for (unsigned depth = below(random, 3); depth > 0; --depth)
    frame.vlan_tags.push_back(0x8100'0000u | below(random, 65536));
  return frame;
}

uint16_t payload_length(const byte_string& record, const test_frame& frame)
{
  const size_t at = frame.ethertype_offset() + 6;
  return static_cast<uint16_t>(record[at] << 8 | record[at + 1]);
}

uint32_t length_field(const byte_string& record)
{
  uint32_t length;
  std::memcpy(&length, &record[48], sizeof length);
  return length;
}

void set_code(byte_string& record, const test_frame& frame, uint8_t code)
{
  record[frame.ethertype_offset() + 3] = code;
}

// What is wrong with what left for the server, whatever came.
std::string complaint(const byte_string& sent, const pppoeia_port& port)
{
  constexpr size_t header = 107;
  if (sent.size() <= header || port.state == 0)
    return {};
  const std::span<const unsigned char> ethernet = std::span(sent).subspan(header);
  const uint8_t code = spoofing::read(ethernet, spoofing::reader::strict).code;
  const bool judged = port.trust == 1 || code == 0x09 || code == 0x19;
  return judged ? spoofing::complaint(ethernet, vendor_value("VELTRONA: eth 3/port1:0", "")) : "";
}

class FrameProperty : public testing::TestWithParam<unsigned> {
protected:
  FrameProperty() : random(GetParam())
  {
    bridge.port(1, 3, 0).port_info_extra = 1;  // every code, every VLAN
  }
  rng random;
  test_bridge bridge;
};

TEST_P(FrameProperty, InsertedAndRemovedGivesTheOriginalBack)
{
  for (int round = 0; round < 500; ++round) {
    const test_frame frame = random_frame(random, false);
    const byte_string original = frame.build();
    byte_string tagged = process(*bridge, original);
    ASSERT_GT(tagged.size(), original.size());
    set_code(tagged, frame, 0x07);
    byte_string back = process(*bridge, tagged);
    set_code(back, frame, frame.code);
    ASSERT_EQ(back, original);
  }
}

TEST_P(FrameProperty, OnlyTheTagTheLengthsAndTheTailChange)
{
  for (int round = 0; round < 500; ++round) {
    const test_frame frame = random_frame(random, true);
    const byte_string original = frame.build();
    const byte_string sent = process(*bridge, original);
    ASSERT_FALSE(sent.empty());
    ASSERT_EQ(length_field(sent), sent.size());
    const long growth = static_cast<long>(sent.size()) - static_cast<long>(original.size());
    ASSERT_EQ(payload_length(sent, frame) - payload_length(original, frame), growth);

    // Both from the front, up to the first difference behind the lengths: it is where a vendor tag begins.
    byte_string masked = sent;
    std::memcpy(&masked[48], &original[48], 4);
    std::memcpy(&masked[frame.ethertype_offset() + 6], &original[frame.ethertype_offset() + 6], 2);
    const auto differs = std::mismatch(masked.begin(), masked.end(), original.begin(), original.end());
    ASSERT_GE(static_cast<size_t>(differs.first - masked.begin()), frame.tags_offset());
  }
}

TEST_P(FrameProperty, AnyBytesAreSafeAndCountersAgree)
{
  pppoeia_port& port = bridge->port[0];
  uint32_t seen = 0;
  for (int round = 0; round < 3000; ++round) {
    byte_string record = random_frame(random, true).build();
    const auto size = static_cast<unsigned>(record.size());
    for (unsigned hits = below(random, 4); hits > 0; --hits)
      record[107 + below(random, size - 107)] = static_cast<unsigned char>(random());
    if (below(random, 4) == 0)
      record.resize(52 + below(random, size - 51));
    const auto length = static_cast<uint32_t>(record.size());
    std::memcpy(&record[48], &length, sizeof length);
    bridge->max_pdu = below(random, 4) ? 1500 : below(random, 200);
    bridge->vsa_mode = below(random, 3);
    port.trust = below(random, 2);
    port.state = static_cast<int32_t>(below(random, 5)) - 1;
    const byte_string sent = process(*bridge, record);
    ASSERT_LE(sent.size(), record.size() + 138);
    if (!sent.empty()) {
      ASSERT_EQ(length_field(sent), sent.size());
    }
    ASSERT_EQ(complaint(sent, port), "");
    ASSERT_EQ(0, std::memcmp(&bridge->stats, &port.stats, sizeof port.stats));
    seen += !sent.empty();
  }
  EXPECT_GT(seen, 100u);
}

INSTANTIATE_TEST_SUITE_P(Seeds, FrameProperty, testing::Values(1u, 2u, 3u, 4u));

}  // namespace
