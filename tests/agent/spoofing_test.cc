// No vendor tag of a subscriber's own making reaches the server in the place of the line's.
#include "fuzz/frames/spoofing.h"
#include "tests/support/records_fixture.h"

#include <cstring>
#include <gtest/gtest.h>

namespace {

constexpr uint8_t padi = 0x09, padr = 0x19;
constexpr uint16_t vendor = 0x0105;

const std::string own = vendor_value("VELTRONA: eth 3/port1:0", "");

class Spoofing : public testing::Test {
protected:
  Spoofing() { port.port_info_extra = 1; }  // every VLAN

  // What leaves of an Ethernet frame from the line; empty when nothing does.
  spoofing::frame leaving(const spoofing::frame& ethernet)
  {
    byte_string record = header_;
    record.insert(record.end(), ethernet.begin(), ethernet.end());
    length_put(record);
    record = process(*bridge, record);
    record.erase(record.begin(), record.begin() + static_cast<long>(std::min(header_.size(), record.size())));
    return record;
  }

  test_bridge bridge;
  pppoeia_port& port = bridge.port(1, 1, 1);

private:
  static byte_string header()
  {
    byte_string record = test_frame{}.build();
    record.resize(kernel_header::size);
    return record;
  }
  const byte_string header_ = header();
};

// One tag of that type that claims `length` bytes, has them, and hides a vendor tag behind them; the PPPoE header says
// that the payload ends anywhere.
spoofing::frame cut_short(uint8_t code, uint16_t type, uint8_t length, uint8_t payload)
{
  byte_string bytes = test_frame{.code = code,
                                 .tags = {{type, std::string(length, 'v')}, {vendor, vendor_value("FORGED", "FORGED")}},
                                 .payload_length = payload}
                          .build();
  bytes.erase(bytes.begin(), bytes.begin() + kernel_header::size);
  return bytes;
}

TEST_F(Spoofing, APayloadThatEndsAnywhereInItsFirstTagHidesNothing)
{
  unsigned left = 0;
  for (const uint16_t type : {uint16_t{0x0101}, vendor, uint16_t{0}})
    for (unsigned payload = 0; payload <= 64; ++payload)
      for (unsigned length = 0; length <= 255; ++length) {
        const uint8_t code = (payload + length) % 2 ? padi : padr;
        const auto frame = cut_short(code, type, static_cast<uint8_t>(length), static_cast<uint8_t>(payload));
        for (const uint32_t trust : {0u, 1u})
          for (const int32_t state : {1, 2, 3}) {
            port.trust = trust;
            port.state = state;
            const spoofing::frame sent = leaving(frame);
            left += !sent.empty();
            ASSERT_TRUE(state != 2 || sent.empty());
            ASSERT_EQ(sent.empty() ? "" : spoofing::complaint(sent, own), "")
                << "tag 0x" << std::hex << type << std::dec << " of " << length << " bytes, payload of " << payload
                << ", trust " << trust << ", state " << state;
          }
      }
  EXPECT_GT(left, 100'000u);
}

// Most come from an untrusted port; one that may send a vendor tag gets it replaced.
TEST_F(Spoofing, NoForgedFrameOfAnyKindPassesForTheLines)
{
  constexpr unsigned count = 160'000;
  const uint32_t seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::printf("seed %u\n", seed);
  spoofing::forger forger(seed, {{},
                                 {},
                                 {0x8100'0064},
                                 {0x88a8'0064, 0x8100'0007},
                                 {0x88a8'0064, 0x8100'0007, 0x8100'0008},
                                 {0x8100'0064, 0x8100'0007, 0x8100'0008},
                                 {0x9100'0064}});
  unsigned left = 0;
  unsigned with_own = 0;
  for (unsigned i = 0; i < count; ++i) {
    const spoofing::frame frame = forger.next();
    port.state = i % 4 ? 1 : 3;
    port.trust = i % 5 ? 1 : 0;
    const spoofing::frame sent = leaving(frame);
    if (sent.empty())
      continue;
    const uint8_t code = spoofing::read(sent, spoofing::reader::strict).code;
    const bool request = code == padi || code == padr;
    if (!request && port.trust == 0)
      continue;
    ASSERT_EQ(spoofing::complaint(sent, own), "") << "frame " << i << ": " << testing::PrintToString(frame);
    ++left;
    with_own += request;
  }
  EXPECT_GT(with_own, count / 5);
  EXPECT_GT(left - with_own, count / 50);
}

}  // namespace
