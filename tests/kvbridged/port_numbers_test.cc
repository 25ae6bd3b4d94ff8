#include "platform/kvbridged/kernel/port_numbers.h"

#include <gtest/gtest.h>

namespace {

using kvbridged::port_number_map;
using kvbridged::port_numbers;

TEST(PortNumbers, AreWhatNamesEndInOrWhatIsGiven)
{
  EXPECT_EQ(
      port_numbers({{"up", 9}, {"absent", 3}}, {"up", "lan3", "eth0", "wan", "eth1.200", "line007", "p70000", "12"}),
      (port_number_map{{"up", 9}, {"lan3", 3}, {"eth1.200", 200}, {"line007", 7}, {"12", 12}}));
}

TEST(PortNumbers, ThatTwoClaimBelongToNeitherUnlessOneWasGivenIt)
{
  EXPECT_EQ(port_numbers({}, {"eth1", "lan1", "lan2"}), (port_number_map{{"lan2", 2}}));
  EXPECT_EQ(port_numbers({{"wan", 1}}, {"eth1", "wan", "lan1"}), (port_number_map{{"wan", 1}}));
  EXPECT_EQ(port_numbers({{"wan", 1}, {"dsl", 1}}, {"lan1", "wan", "dsl"}), port_number_map{});
  EXPECT_EQ(port_numbers({{"eth1", 5}}, {"eth1", "lan1"}), (port_number_map{{"eth1", 5}, {"lan1", 1}}));
}

}  // namespace
