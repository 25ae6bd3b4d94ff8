// What the agent shows of itself, over its socket, while real frames pass.
#include "tests/kvbridged/cables.h"
#include "tests/kvbridged/frames.h"
#include "tests/support/http_get.h"
#include "tests/system/node_test.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <optional>
#include <sys/stat.h>

namespace {

using testing::HasSubstr;

constexpr char socket_path[] = "/run/pppoeia/status";

class StatusTest : public node_test {
protected:
  void SetUp() override
  {
    node_test::SetUp();
    if (!IsSkipped() && !has_devices())
      GTEST_SKIP() << "needs FUSE and TAP devices";
    if (IsSkipped())
      return;
    static const int cabled =
        run("ip link add sub type veth peer name line; ip link add uplink type veth peer name peer;"
            "for link in sub line uplink peer; do ip link set $link up; done")
            .first;
    ASSERT_EQ(cabled, 0);
    modules.emplace(std::vector<std::string>{PROGRAMS "/kvbridged", "run", "--bridge", "br0", "--port",
                                             "br0,1,subscriber,line", "--port", "br0,9,network,uplink"});
    ASSERT_TRUE(wait_until([] { return std::filesystem::exists("/run/kvbridged/tree/mng/config"); }));
    agent_start();
  }
  void TearDown() override
  {
    node_test::TearDown();
    agent.reset();
    if (modules) {
      EXPECT_EQ(modules->end(), 0);
    }
  }

  void agent_start()
  {
    node.logged();
    agent.emplace(std::vector<std::string>{PROGRAMS "/kvbridged", "exec", "--", PROGRAMS "/pppoeia"});
    ASSERT_TRUE(node.wait_for_log("PPPoE IA API ready."));
  }

  static void bridge_make()
  {
    const auto [status, output] = run(R"(pppoeiactl -batch - <<BATCH
init
bridge add br0 16
bridge vlan set-all br0 on
port add br0 1 line line --type eth
port state set br0 1 subscriber
port add br0 9 uplink uplink --kind 1
port state set br0 9 network
BATCH)");
    ASSERT_EQ(status, 0) << output;
  }

  std::optional<background> modules;
  std::optional<background> agent;
};

TEST_F(StatusTest, CountsAFrameOfALine)
{
  bridge_make();
  EXPECT_EQ(http_get(socket_path, "/healthz"), "ok\n");
  const std::string counter =
      R"(pppoeia_port_vendor_specific_tag_inserted_packets_to_server_total{bridge="br0",port="1"} )";
  const host subscriber("sub"), server("peer");
  for (int sent = 1; sent <= 2; ++sent) {
    subscriber.send(discovery_frame(0x09, everybody, host_address(1)));
    ASSERT_GT(server.receive().size(), 60u);
    EXPECT_TRUE(wait_until([&] {
      return http_get(socket_path, "/metrics").find(counter + std::to_string(sent) + "\n") != std::string::npos;
    })) << http_get(socket_path, "/metrics");
  }
  EXPECT_EQ(agent->end(), 0);
  EXPECT_FALSE(std::filesystem::exists(socket_path));
}

TEST_F(StatusTest, TakesTheSocketOfADeadAgentAndLeavesAnyOtherFile)
{
  struct stat file {};
  ASSERT_EQ(stat(socket_path, &file), 0);
  EXPECT_EQ(file.st_mode & 07777, 0660u);
  agent->signal(SIGKILL);
  agent->wait();
  ASSERT_TRUE(std::filesystem::exists(socket_path));
  agent_start();
  EXPECT_EQ(http_get(socket_path, "/healthz"), "ok\n");
  ASSERT_EQ(agent->end(), 0);
  std::ofstream(socket_path) << "somebody's";
  agent_start();
  EXPECT_TRUE(node.wait_for_log("[PPPoE] No status at '/run/pppoeia/status': Address already in use."));
  ASSERT_EQ(agent->end(), 0);
  EXPECT_TRUE(std::filesystem::remove(socket_path));
}

}  // namespace
