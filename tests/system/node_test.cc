#include "tests/system/node_test.h"
#include "tests/support/files.h"

#include <cstdlib>
#include <filesystem>
#include <unistd.h>

#ifdef __SANITIZE_ADDRESS__
// The RPC library forgets some of what its clients, here a test, find out about the service.
extern "C" const char* __lsan_default_suppressions()
{
  return "leak:libtirpc.so";
}
#endif

namespace {

const own_folder own;

}  // namespace

const std::string& node_test::work = own.path;

void node_test::SetUp()
{
  static const std::string reason = geteuid() == 0 ? node.enter() : "needs root";
  if (!reason.empty())
    GTEST_SKIP() << reason;
  node.logged();
}

void device_node_test::SetUp()
{
  node_test::SetUp();
  if (!IsSkipped() && (access("/dev/fuse", W_OK) != 0 || access("/dev/net/tun", W_OK) != 0))
    GTEST_SKIP() << "needs FUSE and TAP devices";
}

std::pair<int, std::string> node_test::run(const std::string& command)
{
  background process({"bash", "-ec", "PATH=" PROGRAMS ":$PATH; " + command});
  const int status = process.wait();
  return {status, process.output()};
}

std::unique_ptr<background> node_test::port_mapper()
{
  std::filesystem::create_directories("/run/rpcbind");
  auto mapper = std::make_unique<background>(std::vector<std::string>{"rpcbind", "-f"});
  EXPECT_TRUE(wait_until([] { return run("rpcinfo").first == 0; }));
  return mapper;
}

void agent_node_test::SetUp(std::vector<std::string> more)
{
  device_node_test::SetUp();
  if (IsSkipped())
    return;
  static const int cabled = run("ip link add sub type veth peer name line; ip link add uplink type veth peer name peer;"
                                "for link in sub line uplink peer; do ip link set $link up; done")
                                .first;
  ASSERT_EQ(cabled, 0);
  std::vector<std::string> command{
      PROGRAMS "/kvbridged", "run", "--bridge", "br0", "--port", "br0,1,subscriber,line", "--port",
      "br0,9,network,uplink"};
  command.insert(command.end(), more.begin(), more.end());
  modules.emplace(std::move(command));
  ASSERT_TRUE(wait_until([] { return std::filesystem::exists("/run/kvbridged/tree/mng/config"); }));
  agent_start();
}

void agent_node_test::TearDown()
{
  node_test::TearDown();
  agent.reset();
  if (modules) {
    modules->signal(SIGCONT);
    EXPECT_EQ(modules->end(), 0);
  }
}

void agent_node_test::agent_start()
{
  node.logged();
  setenv("TSAN_OPTIONS", "atexit_sleep_ms=0", 1);  // the sanitizer's own patience is not the agent's
  agent.emplace(std::vector<std::string>{PROGRAMS "/kvbridged", "exec", "--", PROGRAMS "/pppoeia"});
  ASSERT_TRUE(node.wait_for_log("PPPoE IA API ready."));
}

void agent_node_test::bridge_make()
{
  const auto [status, output] = run(R"(pppoeiactl -batch - <<BATCH
init --force
bridge add br0 16
bridge vlan set-all br0 on
port add br0 1 line line --type eth
port state set br0 1 subscriber
port add br0 9 uplink uplink --kind 1
port state set br0 9 network
BATCH)");
  ASSERT_EQ(status, 0) << output;
}
