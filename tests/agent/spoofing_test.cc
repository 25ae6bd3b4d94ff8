// No vendor tag of a subscriber's own making reaches the server in the place of the line's.
#include "fuzz/frames/spoofing.h"
#include "tests/support/records_fixture.h"

#include <cstring>
#include <gtest/gtest.h>

namespace {

constexpr uint8_t padi = 0x09, padr = 0x19;

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
