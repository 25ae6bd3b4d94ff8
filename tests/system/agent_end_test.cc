// The agent's process when something it depends on stands still: others are served, and SIGTERM ends it in time.
#include "pppoeia/process.h"
#include "tests/system/private_node.h"
#include "tools/agent_client/agent_client.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <list>
#include <optional>
#include <pty.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using agent_client::connection;

constexpr auto end_most = 3s;

const api::operation& row(std::string_view name)
{
  return api::operations[api::operation_id(name)];
}

class AgentEnd : public testing::Test {
protected:
  static void SetUpTestSuite()
  {
    reason = geteuid() == 0 ? node.enter() : "needs root";
    if (reason.empty() && (access("/dev/fuse", W_OK) != 0 || access("/dev/net/tun", W_OK) != 0))
      reason = "needs FUSE and TAP devices";
    char name[] = "/tmp/agent-end.XXXXXX";
    work = mkdtemp(name);
    chmod(work.c_str(), 0755);
  }
  static void TearDownTestSuite() { std::filesystem::remove_all(work); }

  void SetUp() override
  {
    if (!reason.empty())
      GTEST_SKIP() << reason;
    node.hold_log(false);
    node.logged();
    modules.emplace(std::vector<std::string>{PROGRAMS "/kvbridged", "run", "--bridge", "br0", "--bridge", "br1"},
                    work + "/kvbridged.log");
    until([] { return std::filesystem::exists("/run/kvbridged/tree/mng/config"); });
    agent.emplace(std::vector<std::string>{PROGRAMS "/kvbridged", "exec", "--", PROGRAMS "/pppoeia"},
                  work + "/agent.log");
    ASSERT_TRUE(node.wait_for_log("PPPoE IA API ready."));
  }
  void TearDown() override
  {
    node.hold_log(false);
    agent.reset();
    if (modules) {
      kill(modules->pid(), SIGCONT);
      modules->end();
    }
  }

  template <typename Condition>
  static void until(Condition condition)
  {
    for (int tries = 0; tries < 2000 && !condition(); ++tries)
      std::this_thread::sleep_for(10ms);
    ASSERT_TRUE(condition());
  }

  void bridge_make() const
  {
    connection client(agent_client::default_socket, 10s);
    ASSERT_TRUE(client.call(row("pppoeia_init"), {}).ok());
    ASSERT_TRUE(client.call(row("pppoeia_bridge_add"), std::vector<std::string>{"br0", "8"}).ok());
  }

  static bool is_served()
  {
    connection client(agent_client::default_socket, 10s);
    return client.call(row("pppoeia_log_level_get"), {}).ok();
  }

  // How it ended on SIGTERM, an exit status; it has to be in time.
  int end()
  {
    const auto begin = std::chrono::steady_clock::now();
    const int status = agent->end();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, end_most);
    EXPECT_TRUE(WIFEXITED(status)) << status;
    return WEXITSTATUS(status);
  }

  static inline private_node& node = *new private_node;  // its reader outlives main()
  static inline std::string reason;
  static inline std::string work;
  std::optional<background> modules;
  std::optional<background> agent;
};

TEST_F(AgentEnd, AHeldTerminalHoldsNobody)
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

TEST_F(AgentEnd, AReportIsNotWrittenWhereItsAskerMayNotWrite)
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
  EXPECT_EQ(end(), 0);
}

TEST_F(AgentEnd, ModulesThatDoNotAnswerAreNotWaitedForLong)
{
  bridge_make();
  kill(modules->pid(), SIGSTOP);
  EXPECT_EQ(end(), exit_cut_short);
  EXPECT_TRUE(node.wait_for_log("[PPPoE] PPPoE IA process does not end in good order."));
}

TEST_F(AgentEnd, NorIsARequestThatWaitsForThem)
{
  bridge_make();
  kill(modules->pid(), SIGSTOP);
  connection stuck(agent_client::default_socket, 200ms);
  EXPECT_EQ(stuck.call(row("pppoeia_bridge_add"), std::vector<std::string>{"br1", "8"}).error,
            ippc::call_error::time_out);
  EXPECT_EQ(end(), exit_cut_short);
}

TEST_F(AgentEnd, ALogThatIsNotReadHoldsNothingUp)
{
  bridge_make();
  node.hold_log(true);
  connection client(agent_client::default_socket, 200ms);
  for (int i = 0; i < 30; ++i)  // each logs lines, until there is no more room for one
    client.call(row("pppoeia_init"), {});
  const int status = end();
  EXPECT_TRUE(status == 0 || status == exit_cut_short) << status;
}

// As many as the sockets hold, of clients that read no reply.
TEST_F(AgentEnd, RequestsThatWaitAreNotServedFirst)
{
  std::vector<unsigned char> request;
  ippc::request_encode(3, 1, {}, request);
  sockaddr_un address{AF_UNIX, "/var/run/pppoeia_fe_main"};
  std::list<int> clients;
  int queued = 0;
  for (int i = 0; i < 60; ++i) {
    clients.push_back(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    ASSERT_EQ(connect(clients.back(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  }
  for (const int fd : clients)
    while (send(fd, request.data(), request.size(), MSG_NOSIGNAL) > 0)
      ++queued;
  EXPECT_GT(queued, 10'000);
  EXPECT_EQ(end(), 0);
  for (const int fd : clients)
    close(fd);
}

}  // namespace
