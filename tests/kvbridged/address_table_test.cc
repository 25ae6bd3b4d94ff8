#include "platform/kvbridged/address_table.h"

#include "tests/kvbridged/frames.h"

#include <gtest/gtest.h>

namespace {

using namespace kvbridged;
using namespace std::chrono_literals;

mac_address numbered(unsigned number)
{
  const auto byte = [number](int shift) { return static_cast<unsigned char>(number >> shift); };
  return {0x02, 1, byte(24), byte(16), byte(8), byte(0)};
}

class Addresses : public testing::Test {
protected:
  enum : size_t { line1, line2, uplink1, uplink2 };
  static constexpr unsigned share = 8;

  Addresses()
  {
    for (const bool network : {false, false, true, true})
      table.port_add(network, share);
  }
  bool seen(const mac_address& address, size_t port, bool for_subscriber = false)
  {
    return table.seen(address, port, now, for_subscriber);
  }
  std::optional<size_t> at(const mac_address& address) const { return table.port_of(address, now); }

  address_table table;
  address_table::time_point now{1000s};
  const mac_address client = host_address(1);
};

TEST_F(Addresses, AreForgottenWhenNothingComesFromThem)
{
  EXPECT_EQ(at(client), std::nullopt);
  EXPECT_TRUE(seen(client, line1));
  now += 299s;
  EXPECT_EQ(at(client), line1);
  EXPECT_TRUE(seen(client, line1));
  now += 299s;
  EXPECT_EQ(at(client), line1);
  now += 1s;
  EXPECT_EQ(at(client), std::nullopt);
}

TEST_F(Addresses, AFloodPushesOutTheFlood)
{
  EXPECT_TRUE(seen(host_address(2), line2));
  for (unsigned char number = 11; number < 11 + share - 1; ++number)
    EXPECT_TRUE(seen(host_address(number), line1));
  for (unsigned number = 0; number < 200'000; ++number) {
    ASSERT_TRUE(seen(numbered(number), line1));
    ASSERT_EQ(at(numbered(number)), line1);
    ASSERT_TRUE(number == 0 || !at(numbered(number - 1)));
  }
  for (unsigned char number = 11; number < 11 + share - 1; ++number)
    EXPECT_EQ(at(host_address(number)), line1);
  EXPECT_EQ(at(host_address(2)), line2);
}

// Traffic keeps an address, but does not make it newer; those that fell silent make room first.
TEST_F(Addresses, WhoFellSilentMakesRoomBeforeTheNewest)
{
  seen(host_address(11), line1);
  now += 200s;
  for (unsigned number = 0; number < share - 1; ++number)
    seen(numbered(number), line1);
  now += 150s;
  seen(numbered(100), line1);
  EXPECT_EQ(at(numbered(share - 2)), line1);
  seen(numbered(0), line1);
  seen(numbered(101), line1);
  EXPECT_EQ(at(numbered(100)), std::nullopt);
  EXPECT_EQ(at(numbered(0)), line1);
}

TEST_F(Addresses, ASubscriberTakesNobodysAddressWhileItIsInUse)
{
  const mac_address server = host_address(9);
  EXPECT_TRUE(seen(client, line1));
  EXPECT_TRUE(seen(server, uplink1));
  now += 299s;
  EXPECT_FALSE(seen(client, line2));
  EXPECT_FALSE(seen(server, line2));
  EXPECT_EQ(at(client), line1);
  EXPECT_EQ(at(server), uplink1);
  now += 1s;  // what was refused refreshed nothing
  EXPECT_TRUE(seen(client, line2));
  EXPECT_EQ(at(client), line2);
}

TEST_F(Addresses, ANetworkPortTakesAnAddressBackWithAFrameForASubscriber)
{
  const mac_address server = host_address(9);
  EXPECT_TRUE(seen(server, line2));
  EXPECT_FALSE(seen(server, uplink1, false));  // as a subscriber's frame that came back by a second uplink
  EXPECT_EQ(at(server), line2);
  EXPECT_TRUE(seen(server, uplink1, true));
  EXPECT_EQ(at(server), uplink1);
  EXPECT_FALSE(seen(server, line2));
  EXPECT_TRUE(seen(server, uplink2));
  EXPECT_EQ(at(server), uplink2);
}

}  // namespace
