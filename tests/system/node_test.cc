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
