// The programs while the log daemon is stopped: frames pass, requests are answered, processes end, crashes are
// reported.
#include "tests/system/private_node.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

constexpr int patience_ms = 20'000;

class StoppedLog : public testing::Test {
protected:
  static void SetUpTestSuite()
  {
    reason = geteuid() == 0 ? node.enter() : "needs root";
    if (reason.empty() && (access("/dev/fuse", W_OK) != 0 || access("/dev/net/tun", W_OK) != 0))
      reason = "needs FUSE and TAP devices";
    char name[] = "/tmp/stopped-log.XXXXXX";
    work = mkdtemp(name);
  }
  static void TearDownTestSuite() { std::filesystem::remove_all(work); }
  void SetUp() override
  {
    if (!reason.empty())
      GTEST_SKIP() << reason;
    node.hold_log(false);
    node.logged();
  }
  void TearDown() override { node.hold_log(false); }

  static int run(const std::string& command)
  {
    background process({"bash", "-ec", "PATH=" PROGRAMS ":$PATH; " + command}, work + "/output");
    const int status = process.wait();
    return status == 0 ? 0 : (ADD_FAILURE() << command << ": " << process.output(), -1);
  }

  static inline private_node& node = *new private_node;  // its reader outlives main()
  static inline std::string reason;
  static inline std::string work;
};

// Discovery frames that arrive at the interface.
class discovery_socket {
public:
  explicit discovery_socket(const char* interface) : fd_(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(0x8863)))
  {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(0x8863);
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface));
    bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }
  ~discovery_socket() { close(fd_); }
  discovery_socket(const discovery_socket&) = delete;
  discovery_socket& operator=(const discovery_socket&) = delete;

  // How many of `count` came before none came for a while.
  int receive(int count) const
  {
    char frame[2000];
    pollfd wait{fd_, POLLIN, 0};
    for (int received = 0; received < count; ++received)
      if (poll(&wait, 1, patience_ms) != 1 || recv(fd_, frame, sizeof frame, 0) < 0)
        return received;
    return count;
  }

private:
  int fd_;
};

constexpr char bridge_with_a_line[] = R"(
for _ in $(seq 200); do pppoeiactl log level get >/dev/null 2>&1 && break; sleep 0.05; done
pppoeiactl -batch - <<BATCH
init
bridge add br0 16
bridge vlan set-all br0 on
port add br0 1 line line --type eth
port state set br0 1 subscriber
port add br0 9 uplink uplink --kind 1
port state set br0 9 network
BATCH
pppoeiactl log level set debug)";

TEST_F(StoppedLog, TheAgentServesOnAndEnds)
{
  ASSERT_EQ(run("ip link add sub type veth peer name line; ip link add uplink type veth peer name peer;"
                "for link in sub line uplink peer; do ip link set $link up; done"),
            0);
  const std::string tree = work + "/tree";
  background bridge({PROGRAMS "/kvbridged", "--tree", tree, "run", "--bridge", "br0", "--port", "br0,1,subscriber,line",
                     "--port", "br0,9,network,uplink"},
                    work + "/bridge");
  ASSERT_EQ(run("for _ in $(seq 200); do test -e " + tree + "/mng/config && exit; sleep 0.05; done; exit 1"), 0);
  background agent({PROGRAMS "/kvbridged", "--tree", tree, "exec", "--", PROGRAMS "/pppoeia"}, work + "/agent");
  ASSERT_EQ(run(bridge_with_a_line), 0) << agent.output();
  const discovery_socket server("peer");

  node.hold_log(true);
  background flood({PROGRAMS "/padi_flood", "sub", "1000"}, work + "/flood");
  EXPECT_EQ(server.receive(500), 500) << "frames do not pass";
  run("pppoeiactl bridge stats get br0");
  node.hold_log(false);
  EXPECT_TRUE(node.wait_for_log(" messages lost."));
  EXPECT_EQ(server.receive(100), 100);

  node.hold_log(true);
  EXPECT_EQ(server.receive(500), 500);
  EXPECT_EQ(agent.end(), 0);
  EXPECT_THAT(agent.output(), ContainsRegex("\\[PPPoE\\] [0-9]+ messages lost.\n"));
  flood.end();
  bridge.end();
}

TEST_F(StoppedLog, TheFrameworksHostStartsAndEnds)
{
  std::ofstream(work + "/board") << "BOARD_BT5\n";
  std::ofstream config(work + "/config.xml");
  config << "<a><BLL><BOARD Id='all_boards'>";
  for (int i = 0; i < 50; ++i)  // a line of the log each
    config << "<BLE Name='e" << i << "' Load='dynamic' Library='none.so' Start='false'/>";
  config << "</BOARD></BLL></a>";
  config.close();
  setenv("BLL_BOARD_ID", (work + "/board").c_str(), 1);
  setenv("BLL_CONFIG", (work + "/config.xml").c_str(), 1);
  node.hold_log(true);
  background host({PROGRAMS "/bllhost"}, work + "/host");
  for (int tries = 0; tries < 400 && host.output().find("main RPC loop") == std::string::npos; ++tries)
    usleep(50'000);
  EXPECT_THAT(host.output(), HasSubstr("main RPC loop"));
  EXPECT_EQ(host.end(), 0);
  EXPECT_THAT(host.output(), ContainsRegex("[0-9]+ messages lost.\n"));
}

TEST_F(StoppedLog, ACrashIsReportedOnStandardError)
{
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
  node.hold_log(true);
  background crash({PROGRAMS "/crash_report", "abort"}, work + "/crash");
  const int status = crash.wait();
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
  EXPECT_THAT(crash.output(), HasSubstr("*** End of the report"));
}

}  // namespace
