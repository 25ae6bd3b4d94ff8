// The framework as a whole: bllhost with the example plug-ins, a real port mapper, real RPC clients, and what the
// system log received.
#include "rte/BLL/core/rpc_bll_service.h"
#include "tests/system/private_node.h"
#include "tools/bllhost/port_mapper.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <rpc/pmap_clnt.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#ifdef __SANITIZE_ADDRESS__
// The RPC library forgets some of what its clients, here the test, find out about the service.
extern "C" const char* __lsan_default_suppressions()
{
  return "leak:libtirpc.so";
}
#endif

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

constexpr char started[] = "Starting procedure has been completed.";

class FrameworkHost : public testing::Test {
protected:
  static void SetUpTestSuite()
  {
    std::signal(SIGPIPE, SIG_IGN);  // connections that the service closes
    rlimit descriptors;
    getrlimit(RLIMIT_NOFILE, &descriptors);
    descriptors.rlim_cur = std::min<rlim_t>(descriptors.rlim_max, 4096);  // for a crowd, here and in the host
    setrlimit(RLIMIT_NOFILE, &descriptors);
    reason = geteuid() == 0 ? node.enter() : "needs root";
    char name[] = "/tmp/bll-host.XXXXXX";
    work = mkdtemp(name);
    std::ofstream(work + "/board") << "BOARD_BT5\n";
    setenv("BLL_BOARD_ID", (work + "/board").c_str(), 1);
    setenv("BLL_LIB_DIR", PLUGIN_OUTPUT "/lib", 1);
  }
  static void TearDownTestSuite() { std::filesystem::remove_all(work); }
  void SetUp() override
  {
    if (!reason.empty())
      GTEST_SKIP() << reason;
    node.logged();
    std::filesystem::remove(work + "/saved.xml");
    setenv("BLL_CONFIG", PLUGIN_EXAMPLES "/plugin-hello/bll_config.xml", 1);
  }

  void startMapper()
  {
    std::filesystem::create_directories("/run/rpcbind");
    mapper = std::make_unique<background>(std::vector<std::string>{"rpcbind", "-f"}, work + "/rpcbind");
    for (int tries = 0; tries < 200 && system("rpcinfo >/dev/null 2>&1") != 0; ++tries)
      usleep(50'000);
  }
  void startHost(const std::vector<std::string>& options = {})
  {
    std::vector<std::string> command{PROGRAMS "/bllhost", "--save", work + "/saved.xml"};
    command.insert(command.end(), options.begin(), options.end());
    host = std::make_unique<background>(command, work + "/host");
  }
  // Entities are up, and messages are served.
  bool isUp()
  {
    if (!node.wait_for_log(started))
      return false;
    for (int tries = 0; tries < 200; ++tries, usleep(50'000))
      if (host->output().find("main RPC loop") != std::string::npos)
        return true;
    return false;
  }
  // Exit status and output of a command.
  static std::pair<int, std::string> run(const std::string& command)
  {
    background process({"bash", "-c", command}, work + "/output");
    const int status = process.wait();
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, process.output()};
  }
  static std::pair<int, std::string> send(const std::string& arguments) { return run(PROGRAMS "/bllmsg " + arguments); }
  // The lines without thread stamps; without blank ones, and what the service's thread says at any time.
  static std::string log()
  {
    std::string all;
    for (const std::string& line : node.logged()) {
      const std::string text = line.substr(std::min(line.find("] ") + 2, line.size()));
      all += text == "\n" || text.find("thread registered") != std::string::npos ? "" : text;
    }
    return all;
  }
  static clnt_stat call(const char* transport, rpcproc_t procedure, const std::string& message)
  {
    const timeval limit = {5, 0};
    CLIENT* const client = clnt_create("127.0.0.1", bllRpcProgram, bllRpcVersion, transport);
    if (!client)
      return RPC_FAILED;
    std::string texts[] = {message, "", ""};
    char* text = texts[0].data();
    const auto encode = +[](XDR* xdrs, char** first) -> bool_t {
      static std::string empty;
      char* none = empty.data();
      return xdr_string(xdrs, first, ~0U) && xdr_string(xdrs, &none, ~0U) && xdr_string(xdrs, &none, ~0U);
    };
    const auto ignore = +[](XDR*, void*) -> bool_t { return TRUE; };
    const clnt_stat status =
        clnt_call(client, procedure, reinterpret_cast<xdrproc_t>(encode), reinterpret_cast<char*>(&text),
                  reinterpret_cast<xdrproc_t>(ignore), nullptr, limit);
    clnt_destroy(client);
    return status;
  }
  static int connectTcp()
  {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(pmap_getport(&address, bllRpcProgram, bllRpcVersion, IPPROTO_TCP));
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    address.sin_family = AF_INET;
    return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? fd : -1;
  }

  static inline private_node& node = *new private_node;  // its reader outlives main()
  static inline std::string reason;
  static inline std::string work;
  std::unique_ptr<background> mapper;
  std::unique_ptr<background> host;
};

TEST_F(FrameworkHost, StartsInOrderServesAndStopsInReverse)
{
  startMapper();
  startHost();
  ASSERT_TRUE(isUp()) << host->output();
  EXPECT_THAT(log(), ContainsRegex("Hello, world.\ndepends is up, after hello.\n<<< Starting"));

  for (const char* transport : {"udp", "tcp"}) {
    EXPECT_EQ(run(std::string("rpcinfo -T ") + transport + " 127.0.0.1 536870935 1").first, 0) << transport;
    EXPECT_EQ(call(transport, 7, ""), RPC_PROCUNAVAIL);
  }
  EXPECT_TRUE(mapper_knows_us()) << "the host has nothing to complain of";
  EXPECT_EQ(send("depends"), std::make_pair(0, std::string("started 1 times\n")));
  EXPECT_THAT(send("--tcp threads show").second, HasSubstr(" | BLLManager_mng\n"));
  EXPECT_EQ(send("lockingPeriod x").first, 1) << "what a subscriber throws is a refusal";
  EXPECT_EQ(send("depends --tty /nowhere/at/all").first, 1);
  EXPECT_EQ(send("").first, 2);
  log();

  EXPECT_EQ(host->end(), 0);
  EXPECT_TRUE(node.wait_for_log("Good-bye"));
  EXPECT_THAT(log(), ContainsRegex("depends is down, before hello.\nGood-bye, world.\n"));
  std::ifstream saved(work + "/saved.xml");
  EXPECT_THAT(std::string(std::istreambuf_iterator<char>(saved), {}), ContainsRegex("<hello.*\n.*<depends>"));
  EXPECT_EQ(send("depends").first, 3) << "nobody serves it any more";
}

TEST_F(FrameworkHost, ServesThoseWhomItIsToldBesideRoot)
{
  EXPECT_EQ(run(PROGRAMS "/bllhost --allow-user no-such-user").first, 2);
  std::filesystem::permissions(work, std::filesystem::perms{0755});
  std::filesystem::copy(PROGRAMS "/bllmsg", work);
  const auto sendAs = [](const char* user) {
    return run(std::string("setpriv --clear-groups --regid nogroup --reuid ") + user + " " + work +
               "/bllmsg --tty /dev/null depends");
  };
  startMapper();
  startHost({"--allow-user", "nogroup", "--allow-user", "bin"});
  ASSERT_TRUE(isUp()) << host->output();
  EXPECT_EQ(sendAs("root").first, 0);
  EXPECT_EQ(sendAs("nobody").first, 0) << "of that group in the user database";
  EXPECT_EQ(sendAs("bin").first, 0);
  const auto [status, text] = sendAs("daemon");
  EXPECT_EQ(status, 1) << "the group that a process gives itself does not count";
  EXPECT_THAT(text, HasSubstr("bllmsg: not allowed: "));
  EXPECT_TRUE(node.wait_for_log("RPC call to program 536870935, procedure 1, by user 1 refused"));
  EXPECT_EQ(host->end(), 0);
}

TEST_F(FrameworkHost, TheGuidesPluginKeepsItsSetting)
{
  setenv("BLL_CONFIG", PLUGIN_OUTPUT "/page/bll_config.xml", 1);
  startMapper();
  startHost();
  ASSERT_TRUE(isUp()) << host->output();
  EXPECT_THAT(log(), HasSubstr("Hello, world.\n"));
  EXPECT_EQ(send("greet Ada"), std::make_pair(0, std::string("Nice to meet you, Ada.\n")));
  EXPECT_EQ(host->end(), 0);
  log();
  startHost();
  ASSERT_TRUE(isUp()) << host->output();
  EXPECT_THAT(log(), HasSubstr("Hello, Ada.\n"));
  EXPECT_EQ(host->end(), 0);

  std::ofstream(work + "/other.xml") << "<Configuration><hello Whom='Bob'/></Configuration>";
  log();
  startHost({"--load", work + "/other.xml"});
  ASSERT_TRUE(isUp()) << host->output();
  EXPECT_THAT(log(), HasSubstr("Hello, Bob.\n"));
  EXPECT_EQ(host->end(), 0);
}

TEST_F(FrameworkHost, WhatCannotBeSavedOrLoadedIsToldBeforeAnythingStarts)
{
  for (const char* option : {"--save /nowhere/saved.xml", "--load /nowhere/saved.xml", "--save /dev/null/saved.xml"}) {
    const auto [status, said] = run(std::string(PROGRAMS "/bllhost ") + option);
    EXPECT_EQ(status, 2) << option;
    EXPECT_THAT(said, testing::StartsWith("bllhost: " + std::string(option) + ": ")) << option;
  }
  EXPECT_EQ(log(), "");
}

TEST_F(FrameworkHost, HostileClientsHoldNobodyUp)
{
  startMapper();
  startHost();
  ASSERT_TRUE(isUp()) << host->output();
  EXPECT_EQ(call("tcp", bllRpcSendMessage, std::string(66'000, 'x')), RPC_CANTDECODEARGS);
  EXPECT_NE(call("tcp", bllRpcSendMessage, std::string(1024 * 1024, 'x')), RPC_SUCCESS);
  EXPECT_EQ(call("tcp", bllRpcSendMessage, std::string(65'000, 'x')), RPC_SUCCESS);

  const int halfOpen = connectTcp();
  ASSERT_GE(halfOpen, 0);
  EXPECT_EQ(write(halfOpen, "\x80\0", 2), 2);  // the beginning of a record
  const int promising = connectTcp();
  EXPECT_EQ(write(promising,
                  "\x80\0\xff\xff"
                  "abc",
                  7),
            7);
  const int boasting = connectTcp();
  EXPECT_EQ(write(boasting, "\xff\xff\xff\xff", 4), 4);
  EXPECT_EQ(send("depends").first, 0);
  EXPECT_EQ(send("--tcp depends").first, 0);
  std::vector<int> crowd;
  for (int i = 0; i < 1100; ++i)
    crowd.push_back(connectTcp());
  EXPECT_EQ(send("-t 10 depends").first, 0) << "beside more connections than select() can watch";
  EXPECT_EQ(send("-t 10 --tcp depends").first, 0);
  const std::filesystem::directory_iterator open("/proc/" + std::to_string(host->pid()) + "/fd");
  EXPECT_LT(std::distance(begin(open), end(open)), 400) << "those silent for longest are closed";
  for (const int fd : crowd)
    close(fd);
  EXPECT_EQ(send("-t 10 --tcp depends").first, 0);
  for (const int fd : {halfOpen, promising, boasting})
    close(fd);
  EXPECT_EQ(host->end(), 0);
}

TEST_F(FrameworkHost, AFailureRollsBackAndEndsTheHost)
{
  setenv("DEPENDS_FAILS", "1", 1);
  startHost();
  const int status = host->wait();
  unsetenv("DEPENDS_FAILS");
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << host->output();
  EXPECT_TRUE(node.wait_for_log("Good-bye"));
  EXPECT_THAT(log(), ContainsRegex("Hello, world.\nError starting depends BLE.\nWill start stop procedure.\n"
                                   "Good-bye, world.\n"));
}

TEST_F(FrameworkHost, LivesWithoutAPortMapper)
{
  startHost();
  ASSERT_TRUE(isUp()) << host->output();
  EXPECT_THAT(host->output(), ContainsRegex("Cannot register UDP RPC service 0x20000017/536870935, version 1.\n"
                                            ".*Cannot register TCP RPC service 0x20000017/536870935, version 1.\n"));
  EXPECT_TRUE(node.wait_for_log("nobody can reach it by messages"));
  startMapper();
  EXPECT_THAT(send("depends").second, HasSubstr("Program not registered")) << "too late: it registers once";
  EXPECT_EQ(host->end(), 0);
}

}  // namespace
