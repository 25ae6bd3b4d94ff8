// The RPC service's proxies in this process, at a real port mapper: cut messages, other people's sockets, and two
// proxies side by side.
#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/manager/messages.h"
#include "rte/BLL/core/rpc/access.h"
#include "rte/BLL/core/rpc/server.h"
#include "rte/BLL/core/rpc_bll_service.h"
#include "rte/BLL/core/rpc_register.h"
#include "tests/support/files.h"
#include "tests/system/node_test.h"

#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <rpc/pmap_clnt.h>
#include <rpc/rpc_msg.h>
#include <semaphore>
#include <sstream>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using testing::HasSubstr;

constexpr uid_t nobody = 65534;
constexpr rpcprog_t slowProgram = 0x20000099;
constexpr rpcproc_t quick = 1, slow = 2;
constexpr char success[] = "0", noProcedure[] = "3", garbage[] = "4", tooWeak[] = "denied 1 5", silence[] = "";
constexpr int kinds[] = {SOCK_DGRAM, SOCK_STREAM};

std::string callMessage(rpcprog_t program, rpcproc_t procedure, uint32_t id = 1)
{
  rpc_msg message = {};
  message.rm_xid = id;
  message.rm_direction = CALL;
  message.rm_call = {RPC_MSG_VERSION, program, bllRpcVersion, procedure, {}, {}};
  char text[] = "text";
  bllRpcMessage_t arguments{text, text, text + 4};
  std::string bytes(1000, '\0');
  XDR xdrs;
  xdrmem_create(&xdrs, bytes.data(), 1000, XDR_ENCODE);
  EXPECT_TRUE(xdr_callmsg(&xdrs, &message) && xdrBllRpcMessage(&xdrs, &arguments));
  bytes.resize(xdr_getpos(&xdrs));
  return bytes;
}

u_short portOf(rpcprog_t program, int kind)
{
  sockaddr_in mapper = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
  return pmap_getport(&mapper, program, bllRpcVersion, kind == SOCK_DGRAM ? IPPROTO_UDP : IPPROTO_TCP);
}

// A socket of the given owner that is connected to a program.
class client_t {
public:
  client_t(int kind, u_short port, uid_t owner = 0, int family = AF_INET)
      : kind_(kind), fd_(socket(family, kind | SOCK_CLOEXEC, 0))
  {
    const timeval patience = {20, 0};
    setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    EXPECT_EQ(fchown(fd_, owner, owner), 0);
    const sockaddr_in four = {AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
    sockaddr_in6 six = {AF_INET6, htons(port), 0, {}, 0};
    inet_pton(AF_INET6, "::ffff:127.0.0.1", &six.sin6_addr);
    EXPECT_EQ(family == AF_INET ? connect(fd_, reinterpret_cast<const sockaddr*>(&four), sizeof four)
                                : connect(fd_, reinterpret_cast<const sockaddr*>(&six), sizeof six),
              0);
  }
  ~client_t() { close(fd_); }
  client_t(const client_t&) = delete;
  client_t& operator=(const client_t&) = delete;

  void send(const std::string& message) const
  {
    const uint32_t mark = htonl(0x80000000U | static_cast<uint32_t>(message.size()));
    std::string bytes(reinterpret_cast<const char*>(&mark), kind_ == SOCK_STREAM ? sizeof mark : 0);
    bytes += message;
    EXPECT_EQ(::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
  }
  // Number of the call and what was answered to it: the words that matter.
  std::pair<uint32_t, std::string> receive() const
  {
    std::array<uint32_t, 8> words = {};
    uint32_t mark = sizeof words;
    if (kind_ == SOCK_STREAM && recv(fd_, &mark, sizeof mark, MSG_WAITALL) == sizeof mark)
      mark = ntohl(mark) & 0x7fffffff;
    if (recv(fd_, words.data(), std::min<size_t>(mark, sizeof words), 0) <= 0)
      return {0, "nothing"};
    for (uint32_t& word : words)
      word = ntohl(word);
    const bool denied = words[2] == MSG_DENIED;
    return {words[0],
            denied ? "denied " + std::to_string(words[3]) + " " + std::to_string(words[4]) : std::to_string(words[5])};
  }
  std::string ask(const std::string& message) const
  {
    send(message);
    return receive().second;
  }
  // The answer to a message that may get none: silence, then.
  std::string answerBeforeNext(const std::string& message, rpcprog_t program) const
  {
    constexpr uint32_t next = 99;
    send(message);
    send(callMessage(program, NULLPROC, next));
    const auto [id, answer] = receive();
    if (id == next)
      return silence;
    EXPECT_EQ(receive(), std::make_pair(next, std::string(success)));
    return answer;
  }

private:
  int kind_;
  int fd_;
};

std::atomic<int> messages;
std::atomic<bool> holdMessages;
std::binary_semaphore held{0}, letGo{0};

void noteMessage()
{
  ++messages;
  if (!holdMessages)
    return;
  held.release();
  letGo.acquire();
}

class RpcProxies : public node_test {
protected:
  static void TearDownTestSuite() { mapper.reset(); }
  void SetUp() override
  {
    node_test::SetUp();
    if (IsSkipped())
      return;
    if (!mapper) {
      mapper = port_mapper();
      setenv("BLL_BOARD_ID", "/nonexistent", 1);
      singleton<BLLManager>::instance().externalMessageSubscribers.emplace_back(
          [](const std::string& message, const std::string& value, std::ostringstream& reply, const std::string&) {
            noteMessage();
            if (message == "refuse")
              throw std::runtime_error(value);
            if (message == "reply")
              reply << value << "\n";
          });
    }
    messages = 0;
    start(own, bllRpcProgram);
  }
  static void start(RPCProxy& proxy, rpcprog_t program)
  {
    pmap_unset(program, bllRpcVersion);
    ASSERT_TRUE(proxy.start());
    for (const int kind : kinds)
      EXPECT_TRUE(wait_until([&] { return portOf(program, kind) != 0; }));
  }
  static auto call(rpcproc_t procedure = bllRpcSendMessage) { return callMessage(bllRpcProgram, procedure); }

  static inline std::unique_ptr<background> mapper;
  RPCProxy own{rpcBllmanagerStart, "BLLManager_mng"};
};

TEST_F(RpcProxies, CutMessagesAreGarbageAndRepeatNothing)
{
  const std::string whole = call();
  for (const int kind : kinds) {
    messages = 0;
    const client_t client(kind, portOf(bllRpcProgram, kind));
    for (size_t size = 0; size < whole.size(); ++size) {
      ASSERT_EQ(client.ask(whole), success);
      // Two words say that it is a call, and which one.
      ASSERT_EQ(client.answerBeforeNext(whole.substr(0, size), bllRpcProgram), size < 8 ? silence : garbage) << size;
    }
    EXPECT_EQ(messages, static_cast<int>(whole.size()));
  }
}

TEST_F(RpcProxies, TextsAreBounded)
{
  std::vector<char> memory(300'000);
  for (const size_t which : {0, 1, 2})
    for (const u_int length : {bllRpcLongestText, bllRpcLongestText + 1}) {
      std::string texts[3];
      texts[which].assign(length, 'x');
      bllRpcMessage_t arguments{texts[0].data(), texts[1].data(), texts[2].data()};
      XDR xdrs;
      xdrmem_create(&xdrs, memory.data(), static_cast<u_int>(memory.size()), XDR_ENCODE);
      EXPECT_EQ(xdrBllRpcMessage(&xdrs, &arguments), length == 65536) << which << " " << length;
    }
}

TEST_F(RpcProxies, OtherUsersMayAskForNothing)
{
  node.logged();
  for (const int kind : kinds)
    for (const int family : {AF_INET, AF_INET6}) {
      const u_short port = portOf(bllRpcProgram, kind);
      const client_t stranger(kind, port, nobody, family);
      EXPECT_EQ(stranger.ask(call()), tooWeak);
      EXPECT_EQ(stranger.ask(call(7)), tooWeak);
      EXPECT_EQ(stranger.ask(call(NULLPROC)), success);
      EXPECT_EQ(messages, 0);
      EXPECT_EQ(client_t(kind, port, 0, family).ask(call(7)), noProcedure);
      EXPECT_EQ(client_t(kind, port, 0, family).ask(call()), success);
      EXPECT_EQ(messages.exchange(0), 1);
    }
  EXPECT_TRUE(node.wait_for_log("refused"));
  int lines = 0;
  for (const std::string& line : node.logged())
    lines +=
        line.ends_with("] RPC call to program 536870935, procedure 1, by user 65534 refused; 0 more since the last "
                       "such line.\n");
  EXPECT_EQ(lines, 1);
}

// In a user database of long entries, and for one who is in more groups than most.
TEST_F(RpcProxies, WhomTheOperatorNamesMayCall)
{
  constexpr uid_t daemon = 1, bin = 2;
  const client_t member(SOCK_STREAM, portOf(bllRpcProgram, SOCK_STREAM), bin);
  const client_t named(SOCK_STREAM, portOf(bllRpcProgram, SOCK_STREAM), daemon);
  std::ofstream groups(work + "/group");
  groups << file_text("/etc/group");
  for (int i = 1; i <= 100; ++i)
    groups << "many" << i << ":x:" << 20'000 + i << ":bin," << std::string(3000, 'x') << "\n";
  groups.close();
  ASSERT_EQ(run("mount --bind " + work + "/group /etc/group").first, 0);
  EXPECT_FALSE(rpcAllow("nosuchuser"));
  EXPECT_EQ(member.ask(call()) + member.ask(call()), std::string(tooWeak) + tooWeak);
  EXPECT_TRUE(rpcAllow("many100"));
  EXPECT_EQ(member.ask(call()), success);
  EXPECT_EQ(named.ask(call()), tooWeak);
  EXPECT_TRUE(rpcAllow("daemon"));
  EXPECT_EQ(named.ask(call()), success);
  run("umount /etc/group");
}

// Whether the kernel has forgotten whose a closed TCP socket was, and says that it is root's.
bool isThereAnOrphan()
{
  std::ifstream table("/proc/thread-self/net/tcp");
  for (std::string line; std::getline(table, line);) {
    std::istringstream words(line);
    std::string skipped, state, owner;
    if (words >> skipped >> skipped >> skipped >> state >> skipped >> skipped >> skipped >> owner && state == "05" &&
        owner == "0")
      return true;
  }
  return false;
}

// A socket that is closed by the time is nobody's. A UDP port may have several.
TEST_F(RpcProxies, WhoCannotBeToldIsRefused)
{
  holdMessages = true;
  const client_t busy(SOCK_STREAM, portOf(bllRpcProgram, SOCK_STREAM));
  busy.send(call());
  held.acquire();
  for (const int kind : kinds)
    client_t(kind, portOf(bllRpcProgram, kind), nobody).send(call());
  EXPECT_TRUE(wait_until(isThereAnOrphan));
  holdMessages = false;
  letGo.release();
  EXPECT_EQ(busy.receive().second, success);

  const u_short port = portOf(bllRpcProgram, SOCK_DGRAM);
  int sharers[2];
  sockaddr_in address = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
  socklen_t size = sizeof address;
  for (int& fd : sharers) {
    fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), size), 0);
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1);  // for the second one, at the same port
  }
  const sockaddr_in service = {AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
  EXPECT_EQ(connect(sharers[0], reinterpret_cast<const sockaddr*>(&service), sizeof service), 0);
  for (const uid_t other : {uid_t{0}, nobody}) {
    EXPECT_EQ(fchown(sharers[1], other, other), 0);
    const std::string message = call();
    EXPECT_EQ(send(sharers[0], message.data(), message.size(), 0), static_cast<ssize_t>(message.size()));
    uint32_t words[8] = {};
    EXPECT_GT(recv(sharers[0], words, sizeof words, 0), 0);
    EXPECT_EQ(ntohl(words[2]), other == nobody ? MSG_DENIED : MSG_ACCEPTED);
  }
  for (const int fd : sharers)
    close(fd);
  EXPECT_EQ(client_t(SOCK_STREAM, portOf(bllRpcProgram, SOCK_STREAM)).ask(call(NULLPROC)), success);
  EXPECT_EQ(messages, 2) << "of the busy one, and of the port that one user has alone";
}

std::atomic<std::thread::id> neighbour;

void dispatchNeighbour(svc_req* request, SVCXPRT* transport)
{
  EXPECT_EQ(std::this_thread::get_id(), neighbour.load());
  if (request->rq_proc == slow) {
    held.release();
    letGo.acquire();
  }
  enum_t result = 0;
  svc_sendreply(transport, reinterpret_cast<xdrproc_t>(xdr_enum), &result);
}

void* startNeighbour(void*)
{
  neighbour = std::this_thread::get_id();
  rpcProxyRegisterSvc(slowProgram, bllRpcVersion, dispatchNeighbour);
  return nullptr;
}

// The RPC library is asked for the ports before there are threads.
using ports_t = std::pair<u_short, u_short>;

ports_t portsOf(rpcprog_t program)
{
  return {portOf(program, SOCK_DGRAM), portOf(program, SOCK_STREAM)};
}

void askOften(rpcprog_t program, ports_t ports, int times)
{
  for (const int kind : kinds) {
    const client_t client(kind, kind == SOCK_DGRAM ? ports.first : ports.second);
    for (int i = 0; i < times; ++i)
      EXPECT_EQ(client.ask(callMessage(program, quick)), success);
  }
}

TEST_F(RpcProxies, ServeSideBySide)
{
  for (int round = 0; round < 10; ++round) {
    RPCProxy other(startNeighbour, "dhcpra_fun");
    start(other, slowProgram);
    const ports_t ours = portsOf(bllRpcProgram), theirs = portsOf(slowProgram);
    std::thread clients[] = {std::thread(askOften, bllRpcProgram, ours, 100),
                             std::thread(askOften, slowProgram, theirs, 100),
                             std::thread(askOften, slowProgram, theirs, 100)};
    for (std::thread& client : clients)
      client.join();

    const int kind = kinds[round % 2];
    const client_t waiting(kind, portOf(slowProgram, kind));
    waiting.send(callMessage(slowProgram, slow));
    held.acquire();
    askOften(bllRpcProgram, ours, 10);  // while the other one is busy
    letGo.release();
    EXPECT_EQ(waiting.receive().second, success);
    EXPECT_TRUE(other.stop(true));
    askOften(bllRpcProgram, ours, 10);
  }
}

void* startByLibrary(void*)
{
  neighbour = std::this_thread::get_id();
  EXPECT_TRUE(svc_register(svcudp_create(RPC_ANYSOCK), slowProgram, bllRpcVersion, dispatchNeighbour, IPPROTO_UDP));
  SVCXPRT* const tcp = svctcp_create(RPC_ANYSOCK, 0, 0);
  EXPECT_TRUE(svc_register(tcp, slowProgram, bllRpcVersion, dispatchNeighbour, IPPROTO_TCP));
  return nullptr;
}

void* startAndServe(void* interruptCheck)
{
  startNeighbour(nullptr);
  for (timeval wait = {0, 1000};; wait = {0, 1000}, (*static_cast<void (**)()>(interruptCheck))())
    if (fd_set ready = svc_fdset; select(FD_SETSIZE, &ready, nullptr, nullptr, &wait) > 0)
      svc_getreqset(&ready);
}

// A start function that knows the RPC library, or has a loop of its own over it, is served as ever.
TEST_F(RpcProxies, ServeTheLibrarysTransportsToo)
{
  const std::pair<RPCProxy::startFunction_t, const char*> kindsOfProxy[] = {{startAndServe, "other"},
                                                                            {startByLibrary, "dhcpra_fun"}};
  for (const auto& [function, name] : kindsOfProxy) {
    RPCProxy other(function, name);
    start(other, slowProgram);
    askOften(slowProgram, portsOf(slowProgram), 10);
    askOften(bllRpcProgram, portsOf(bllRpcProgram), 10);
    EXPECT_TRUE(other.stop(true));
    svc_unregister(slowProgram, bllRpcVersion);
  }
}

TEST_F(RpcProxies, TheCommandsEndAsTheirHelpTells)
{
  const std::string help = "\nRun with --help for more information.\n";
  const struct {
    std::string command;
    int status;
    testing::Matcher<std::string> told;
  } commands[] = {
      {"bllmsg --help", 0, testing::EndsWith("\n\nExit status: 0 delivered, 1 refused, 2 usage, 3 no service.\n")},
      {"bllmsg", 2, "MESSAGE is required" + help},
      {"bllmsg --color x", 2, "The following argument was not expected: --color" + help},
      {"bllmsg -t 0 x", 2, "--timeout: between 0 and 86400 seconds" + help},
      {"bllmsg -t 86400 x", 2, "--timeout: between 0 and 86400 seconds" + help},
      {"bllmsg -t 86399 x", 0, ""},
      {"bllmsg --tcp --tty /dev/null x y", 0, ""},
      {"bllmsg refuse it", 1, "bllmsg: not delivered: RPC: Remote system error\n"},
      {"bllmsg --tty /nowhere/at/all reply it", 1,
       "bllmsg: the service could not write its reply to /nowhere/at/all\n"},
      {"bllhost --help", 0, testing::HasSubstr("\nExit status: 0 stopped on request, ")},
      {"bllhost --color", 2, "The following argument was not expected: --color" + help},
      {"bllhost --allow-user nosuchuser", 2, "--allow-user: no user or group nosuchuser" + help},
      {"bllhost --load /nonexistent", 2, "bllhost: --load /nonexistent: No such file or directory\n"},
      {"bllhost --save /dev/null/settings.xml", 2, "bllhost: --save /dev/null/settings.xml: there is no such folder\n"},
      {"bllhost --save /nonexistent/settings.xml", 2,
       "bllhost: --save /nonexistent/settings.xml: there is no such folder\n"},
  };
  for (const auto& [command, status, told] : commands)
    EXPECT_THAT(run(command), testing::Pair(status, told)) << command;
  EXPECT_EQ(messages, 4);
  EXPECT_TRUE(node.wait_for_log("] Operator's message refuse has thrown: it\n"));
  const auto [listed, list] = run("bllmsg --list");
  EXPECT_EQ(listed, 0);
  for (const bllCommand_t& command : bllCommands)
    EXPECT_THAT(list,
                testing::ContainsRegex("(^|\n)" + std::string(command.message) + (command.prefix ? "[.]{3} " : " ") +
                                       "[^\n]* " + std::string(command.what).substr(0, 20)));
  EXPECT_THAT(list, testing::ContainsRegex("\ndhcpra:MESSAGE +handed to the agent that shares the framework\n$"));
  const std::string tty = work + "/tty";
  for (const std::string way : {"", "--tcp "}) {
    std::ofstream(tty) << "";
    EXPECT_EQ(run("bllmsg " + way + "reply text"), std::make_pair(0, std::string("text\n")));
    EXPECT_EQ(run("bllmsg " + way + "--tty " + tty + " reply text"), std::make_pair(0, std::string()));
    EXPECT_EQ(file_text(tty), "text\n");
  }
  const std::string value(60'000, 'v');
  EXPECT_EQ(run("bllmsg --tcp reply " + value), std::make_pair(0, value + "\n"));
  EXPECT_TRUE(own.stop(true));
  pmap_unset(bllRpcProgram, bllRpcVersion);
  // The RPC library forgets what it looked up.
  EXPECT_EQ(run("ASAN_OPTIONS=detect_leaks=0 bllmsg -t 1 x"),
            std::make_pair(3, std::string("bllmsg: no service: RPC: Program not registered\n")));
}

TEST_F(RpcProxies, WithoutAPortMapperNothingIsKept)
{
  EXPECT_TRUE(own.stop(true));
  mapper.reset();
  testing::internal::CaptureStderr();
  startNeighbour(nullptr);  // which ends what is left of earlier ones
  const auto files = entries("/proc/self/fd");
  startNeighbour(nullptr);
  std::thread([] {
    rpcServer_t server(rpcAdmit);
    startNeighbour(nullptr);
  }).join();
  const std::string service = " RPC service 0x20000099/536871065, version 1.\n",
                    line = "rpc_register.cc:[0-9]+ Cannot ";
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::MatchesRegex("(" + line + "register UDP" + service + line + "register TCP" + service + "){3}"));
  EXPECT_LE(entries("/proc/self/fd"), files);
}

}  // namespace
