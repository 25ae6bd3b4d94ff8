// The vendor tag in and out of ordinary frames, as a reader of the protocol expects it. All others are the model's.
#include "tests/support/records_fixture.h"

#include <gtest/gtest.h>

namespace {

constexpr uint8_t padi = 0x09, pado = 0x07, padr = 0x19, pads = 0x65;

const std::string default_cid = "VELTRONA: eth 3/port1:0";
const test_tag own{0x0105, vendor_value(default_cid, "")};
const test_tag service{0x0101, "isp"}, ac_name{0x0102, "ac"}, host{0x0103, "abcd"}, end_of_list{0, ""};
const test_tag short_one{0x0105, "x"}, long_one{0x0105, std::string(90, 'y')};

class VendorTag : public testing::Test {
protected:
  VendorTag() { bridge.port(1, 3, 0); }
  test_bridge bridge;
};

TEST_F(VendorTag, GoesInAndOutAmongTheOtherTags)
{
  struct row {
    const char* what;
    uint8_t code;
    std::vector<test_tag> came, left;
    byte_string trailer{};
  };
  const row rows[] = {
      {"behind the last tag", padi, {service, host}, {service, host, own}, {1, 2, 3}},
      {"before End-Of-List", padi, {service, end_of_list}, {service, own, end_of_list}},
      {"before End-Of-List alone", padi, {end_of_list}, {own, end_of_list}},
      {"into an empty payload", padi, {}, {own}, {0xde, 0xad, 0xbe, 0xef, 0x00}},
      {"in the place of a shorter one", padr, {service, short_one, host}, {service, own, host}},
      {"in the place of a longer one", padr, {service, long_one, host}, {service, own, host}},
      {"in the place of its like", padr, {service, own, host}, {service, own, host}},
      {"out of an offer", pado, {ac_name, long_one, host}, {ac_name, host}},
      {"off the end", pads, {ac_name, short_one}, {ac_name}},
  };
  for (const row& row : rows) {
    const test_frame came{.code = row.code, .tags = row.came, .trailer = row.trailer};
    const test_frame left{.code = row.code, .tags = row.left, .trailer = row.trailer};
    EXPECT_EQ(process(*bridge, came.build()), left.build()) << row.what;
  }
  bridge->vsa_mode = 0;
  const byte_string offer = test_frame{.code = pado, .tags = {ac_name, own}}.build();
  EXPECT_EQ(process(*bridge, offer), offer);
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
  EXPECT_EQ(inserted(7, 9), "\x01\x17" + default_cid + "\x02\x00"s);
}

}  // namespace
