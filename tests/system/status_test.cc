// What the agent shows of itself, over its socket, while real frames pass.
#include "tests/kvbridged/cables.h"
#include "tests/kvbridged/frames.h"
#include "tests/support/http_get.h"
#include "tests/system/node_test.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sstream>
#include <sys/stat.h>
#include <thread>

namespace {

using testing::AllOf;
using testing::HasSubstr;

constexpr char socket_path[] = "/run/pppoeia/status";

using StatusTest = agent_node_test;

TEST_F(StatusTest, TellsOfALine)
{
  bridge_make();
  const host subscriber("sub"), server("peer");
  EXPECT_THAT(run("pppoeiactl lines --client 02:00:00:00:00:01").second, HasSubstr("No frame of 02:00:00:00:00:01"));
  subscriber.send(discovery_frame(0x09, everybody, host_address(1)));
  ASSERT_FALSE(server.receive().empty());
  EXPECT_TRUE(wait_until([] { return run("pppoeiactl lines br0 1").second.find("discovering") != std::string::npos; }));
  EXPECT_THAT(run("pppoeiactl lines --client 02:00:00:00:00:01").second,
              AllOf(HasSubstr("circuit_id"), HasSubstr("eth")));
  EXPECT_EQ(run("pppoeiactl lines br0 2 --json").second, "[]\n");
  EXPECT_EQ(run("pppoeiactl lines --client nobody").first, 2);
  for (int frame = 2; frame <= 64; ++frame)  // of which one is timed
    subscriber.send(discovery_frame(0x09, everybody, host_address(1)));
  EXPECT_TRUE(wait_until([] {
    return http_get(socket_path, "/metrics").find("frame_path_seconds_count{bridge=\"br0\"} 1\n") != std::string::npos;
  }));
}

TEST_F(StatusTest, MonitorWritesWhatOthersRead)
{
  bridge_make();
  const host subscriber("sub"), server("peer");
  background watcher({"bash", "-c",
                      "PATH=" PROGRAMS ":$PATH; pppoeiactl monitor --count 2 --pcap - |"
                      " tshark -r - -T fields -e frame.len -e frame.comment -e pppoe.code 2>/dev/null"});
  background second({PROGRAMS "/pppoeiactl", "monitor", "--dropped", "--count", "1"});
  // Frames go by unseen until both watch.
  const std::jthread sender([&](const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      subscriber.send(discovery_frame(0x07, everybody, host_address(2), 70));
      subscriber.send(discovery_frame(0x09, everybody, host_address(1)));
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  });
  EXPECT_EQ(watcher.wait(), 0);
  EXPECT_EQ(second.wait(), 0);
  EXPECT_THAT(watcher.output(),
              HasSubstr("70\tcame, br0 port 1 vlan 0: dropped: the port's side may not send this code"));
  EXPECT_THAT(watcher.output(), HasSubstr("60\tcame, br0 port 1 vlan 0: vendor tag inserted\t0x09\n"));
  EXPECT_THAT(watcher.output(), HasSubstr("94\tleft, br0 port 1 vlan 0: vendor tag inserted\t0x09\n"));
  EXPECT_THAT(second.output(), HasSubstr("br0 port 1 vlan 0 PADO"));
  EXPECT_EQ(run("pppoeiactl monitor --pcap /dev/full").first, 2) << "a full disk";
}

// Every metric that rules and dashboard speak of is there, and promtool finds nothing wrong with any.
TEST_F(StatusTest, IsWhatMonitoringUnderstands)
{
  if (run("command -v promtool").first != 0)
    GTEST_SKIP() << "needs promtool";
  bridge_make();
  const host subscriber("sub"), server("peer");
  subscriber.send(discovery_frame(0x09, everybody, host_address(1)));
  ASSERT_FALSE(server.receive().empty());
  subscriber.send(discovery_frame(0x07, everybody, host_address(1)));
  EXPECT_TRUE(wait_until(
      [] { return http_get(socket_path, "/metrics").find("port=\"1\",reason=\"role\"") != std::string::npos; }));
  const std::string text = http_get(socket_path, "/metrics");
  std::ofstream(work + "/metrics") << text;
  const auto [status, complaint] = run("promtool check metrics <" + work + "/metrics");
  EXPECT_EQ(status, 0) << complaint;
  EXPECT_EQ(complaint, "");
  const auto [rules, told] = run("cd " MONITORING "; promtool check rules pppoeia-alerts.yml;"
                                 " promtool test rules pppoeia-alerts-test.yml");
  EXPECT_EQ(rules, 0) << told;
  std::istringstream names(run("cd " MONITORING "; grep -oh 'pppoeia_[a-z_]*' *.yml *.json | sort -u").second);
  int count = 0;
  for (std::string name; std::getline(names, name); ++count)
    EXPECT_TRUE(text.find("\n" + name + "{") != std::string::npos || text.find("\n" + name + " ") != std::string::npos)
        << name;
  EXPECT_GT(count, 10);
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
  ASSERT_FALSE(std::filesystem::exists(socket_path));
  std::ofstream(socket_path) << "somebody's";
  agent_start();
  EXPECT_TRUE(node.wait_for_log("[PPPoE] No status at '/run/pppoeia/status': Address already in use."));
  ASSERT_EQ(agent->end(), 0);
  EXPECT_TRUE(std::filesystem::remove(socket_path));
}

}  // namespace
