// The agent's process on kvbridged: with traffic, and when something it depends on stands still. Others are served,
// SIGTERM ends it in time, and nothing is left behind.
#include "pppoeia/agent/process.h"
#include "tests/kvbridged/cables.h"
#include "tests/kvbridged/frames.h"
#include "tests/system/node_test.h"
#include "tools/agent_client/agent_client.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <list>
#include <net/if.h>
#include <optional>
#include <pty.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using agent_client::connection;
using testing::ContainsRegex;
using testing::Not;

constexpr auto end_most = 10s;  // two and a little, on a busy machine

const api::operation& row(std::string_view name)
{
  return api::operations[api::operation_id(name)];
}

class AgentLife : public agent_node_test {
protected:
  void SetUp() override { agent_node_test::SetUp({"--bridge", "br1"}); }

  static bool is_served()
  {
    connection client(agent_client::default_socket, 10s);
    return client.call(row("pppoeia_log_level_get"), {}).ok();
  }

  // The exit status that it ends with on SIGTERM; it has to be in time.
  int end()
  {
    const auto begin = std::chrono::steady_clock::now();
    const int status = agent->end();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, end_most);
    EXPECT_THAT(agent->output(), Not(ContainsRegex("Sanitizer|runtime error")));
    return status;
  }

  // How many descriptors ("fd") or threads ("task") the agent has.
  auto count_of(const char* what) const
  {
    const std::filesystem::directory_iterator all("/proc/" + std::to_string(agent->pid()) + "/" + what);
    return std::distance(begin(all), std::filesystem::end(all));
  }
};

const kvbridged::frame_bytes padi = discovery_frame(0x09, everybody, host_address(1));

// PADIs of a subscriber, each of which has to reach the server with a tag.
void pass(const host& subscriber, const host& server, int count)
{
  for (int i = 0; i < count; ++i) {
    subscriber.send(padi);
    ASSERT_GT(server.receive().size(), padi.size()) << "frame " << i;
  }
}

TEST_F(AgentLife, EndsInTimeInEachState)
{
  EXPECT_EQ(end(), 0) << "idle";
  agent_start();
  EXPECT_EQ(run("pppoeiactl init").first, 0);
  EXPECT_EQ(end(), 0) << "initialised";
  agent_start();
  bridge_make();
  const host subscriber("sub"), server("peer");
  pass(subscriber, server, 20);
  const std::jthread flood([&](const std::stop_token& stop) {
    for (; !stop.stop_requested(); std::this_thread::sleep_for(500us))
      subscriber.send(padi);
  });
  EXPECT_EQ(end(), 0) << "under traffic";
  EXPECT_EQ(if_nametoindex("br0_pppoe"), 0u);
}

TEST_F(AgentLife, BridgesMadeAndDeletedLeaveNothing)
{
  const auto round = [] {
    bridge_make();
    EXPECT_EQ(run("pppoeiactl bridge del br0").first, 0);
  };
  round();
  const auto descriptors = count_of("fd"), threads = count_of("task");
  for (int i = 0; i < 50; ++i)
    round();
  EXPECT_TRUE(wait_until([&] { return count_of("fd") <= descriptors && count_of("task") <= threads; }))
      << count_of("fd") << " descriptors, " << descriptors << " before, and " << count_of("task") << " threads, "
      << threads << " before";
  EXPECT_EQ(if_nametoindex("br0_pppoe"), 0u);
  EXPECT_EQ(end(), 0);
}

TEST_F(AgentLife, AHeldTerminalHoldsNobody)
{
  bridge_make();
  int master = -1, slave = -1;
  char name[64];
  ASSERT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0);
  ASSERT_EQ(tcflow(slave, TCOOFF), 0);
  connection client(agent_client::default_socket, 10s);
  for (int i = 0; i < 3; ++i)
    EXPECT_TRUE(client.call(row("pppoeia_dump"), std::vector<std::string>{"br0", "0", name}).ok());
  EXPECT_TRUE(node.wait_for_log(std::string("\t PPPoEIA: Error writing to file: ") + name));
  EXPECT_TRUE(is_served());
  EXPECT_EQ(end(), 0);
  close(slave);
  close(master);
}

TEST_F(AgentLife, AReportIsNotWrittenWhereItsAskerMayNotWrite)
{
  bridge_make();
  const std::string table = work + "/crontab";
  std::ofstream(table) << "as it was";
  chmod(table.c_str(), 0644);
  chmod(agent_client::default_socket, 0666);  // as if the user were of the group
  ASSERT_EQ(seteuid(54321), 0);
  connection client(agent_client::default_socket, 10s);
  EXPECT_TRUE(client.call(row("pppoeia_dump"), std::vector<std::string>{"br0", "0", table}).ok());
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_TRUE(node.wait_for_log("\t PPPoEIA: Error opening tty file for writing: " + table));
  std::string text;
  std::getline(std::ifstream(table), text);
  EXPECT_EQ(text, "as it was");
}

TEST_F(AgentLife, ModulesThatDoNotAnswerAreNotWaitedForLong)
{
  bridge_make();
  modules->signal(SIGSTOP);
  EXPECT_EQ(end(), exit_cut_short);
  EXPECT_TRUE(node.wait_for_log("[PPPoE] PPPoE IA process does not end in good order."));
}

TEST_F(AgentLife, NorIsARequestThatWaitsForThem)
{
  bridge_make();
  modules->signal(SIGSTOP);
  connection stuck(agent_client::default_socket, 200ms);
  EXPECT_EQ(stuck.call(row("pppoeia_bridge_add"), std::vector<std::string>{"br1", "8"}).error,
            ippc::call_error::time_out);
  EXPECT_EQ(end(), exit_cut_short);
}

TEST_F(AgentLife, AStoppedLogHoldsNothingUp)
{
  bridge_make();
  EXPECT_EQ(run("pppoeiactl log level set debug").first, 0);
  const host subscriber("sub"), server("peer");
  node.hold_log(true);
  pass(subscriber, server, 500);
  EXPECT_TRUE(is_served());
  node.hold_log(false);
  EXPECT_TRUE(node.wait_for_log(" messages lost."));
  node.hold_log(true);
  pass(subscriber, server, 500);
  EXPECT_EQ(end(), 0);
  EXPECT_THAT(agent->output(), ContainsRegex("\\[PPPoE\\] [0-9]+ messages lost.\n"));
}

// As many as the sockets hold, of clients that read no reply.
TEST_F(AgentLife, RequestsThatWaitAreNotServedFirst)
{
  std::vector<unsigned char> request;
  ippc::request_encode(3, 1, {}, request);
  sockaddr_un address{AF_UNIX, "/var/run/pppoeia_fe_main"};
  std::list<descriptor> clients;
  int queued = 0;
  for (int i = 0; i < 60; ++i) {
    clients.emplace_back(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    ASSERT_EQ(connect(clients.back().get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  }
  for (const auto& client : clients)
    while (send(client.get(), request.data(), request.size(), MSG_NOSIGNAL) > 0)
      ++queued;
  EXPECT_GT(queued, 10'000);
  EXPECT_EQ(end(), 0);
}

}  // namespace
