// An agent that goes away in the midst of a command: whatever was under way, that is told, and nothing else.
#include "tests/tools/request_relay.h"
#include "tests/tools/running_agent.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tuple>
#include <unistd.h>

namespace {

TEST(AgentGone, IsToldAtWhicheverRequest)
{
  running_agent agent;
  request_relay relay(agent.socket());
  const std::string card = fresh_socket() + ".conf";
  std::ofstream(card) << "init\nbridge add br0 4\nvlan add br0 5\nvlan name set br0 5 five\n"
                         "port add br0 1 line1 one --type eth\nport add br0 2 line2 two\n"
                         "port-vlan circuit-id-mode set br0 1 5 custom\n"
                         "port-vlan circuit-id-format set br0 1 5 '$PORT'\n";
  ASSERT_EQ(agent.ctl({"apply", card}).status, 0);
  for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
           {"format", "check", "br0"}, {"show", "lines", "br0"}, {"diff", card}, {"explain", "br0", "1", "5"}}) {
    relay.hang_up_at(0, false);
    const outcome undisturbed = ctl(relay.socket(), command);
    const size_t requests = relay.count();
    size_t gone = 0;
    // The last ones put back what the command has lent itself.
    for (const size_t before_the_end : {0, 2, 4, 8, 15}) {
      relay.hang_up_at(requests - before_the_end, false);
      const outcome told = ctl(relay.socket(), command);
      gone += told.status == 3;
      if (told.status == 3)
        EXPECT_THAT(told.err, testing::StartsWith("pppoeiactl: no agent answers on " + relay.socket() + " (--socket "));
      else
        EXPECT_EQ(std::tie(told.status, told.out, told.err),
                  std::tie(undisturbed.status, undisturbed.out, undisturbed.err))
            << command.front() << " " << before_the_end;
    }
    EXPECT_GE(gone, 3u) << command.front();
  }
  unlink(card.c_str());
}

}  // namespace
