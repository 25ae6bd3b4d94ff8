// The server on a real socket: many clients, dead ones, rude ones.
#include "base/caller.h"
#include "platform/ippc/client.h"
#include "platform/ippc/server.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <list>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

int32_t echo(ippcFuncData* request)
{
  if (!ippcFuncDataIsValid(request))
    return -2;
  const int32_t result = request->functionId;
  return ippcFuncDataAddRetVal(request, &result, sizeof result);
}

class IppcServer : public testing::Test {
protected:
  IppcServer() : path(testing::TempDir() + "ippc" + std::to_string(getpid())), server(path, echo)
  {
    EXPECT_EQ(server.start(), 0);
  }

  int raw_connection() const
  {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, path.c_str());
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    return connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 ? fd : -1;
  }

  bool serves() const
  {
    ippc::client client;
    std::vector<std::vector<unsigned char>> none;
    return client.open(path) && client.call(42, none, 2s).result == 42;
  }

  std::string path;
  ippc::server server;
};

TEST_F(IppcServer, AnswersOnASocketForItsGroup)
{
  EXPECT_TRUE(serves());
  struct stat file {};
  ASSERT_EQ(stat(path.c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 0777, 0660u);
}

TEST_F(IppcServer, SocketOfALivingServerIsNotTakenAStaleOneIs)
{
  ippc::server second(path, echo);
  EXPECT_EQ(second.start(), -1);
  EXPECT_EQ(errno, EADDRINUSE);
  EXPECT_TRUE(serves());

  const std::string stale = path + ".stale";
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, stale.c_str());
  const int fd = socket(AF_UNIX, SOCK_SEQPACKET, 0);
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  close(fd);
  ippc::server third(stale, echo);
  EXPECT_EQ(third.start(), 0);

  const std::string file = path + ".file";
  close(open(file.c_str(), O_CREAT | O_WRONLY, 0600));
  ippc::server fourth(file, echo);
  EXPECT_EQ(fourth.start(), -1);
  EXPECT_TRUE(std::filesystem::exists(file));
  std::filesystem::remove(file);
}

// With the given user as the one who connects.
template <typename Action>
void as_user(uid_t user, Action action)
{
  ASSERT_EQ(seteuid(user), 0);
  action();
  ASSERT_EQ(seteuid(0), 0);
}

TEST_F(IppcServer, ServesSixtyFourAndTellsOneMoreThatItIsBusy)
{
  std::list<ippc::client> clients(64);
  std::vector<std::vector<unsigned char>> none;
  for (ippc::client& client : clients) {
    ASSERT_TRUE(client.open(path));
    EXPECT_EQ(client.call(7, none, 2s).result, 7);
  }
  for (int i = 0; i < 100; ++i) {
    ippc::client more;
    EXPECT_TRUE(more.open(path));
    EXPECT_EQ(more.call(7, none, 2s).error, ippc::call_error::busy);
    EXPECT_NE(more.call(7, none, 2s).error, ippc::call_error::none);
  }
  const int fd = raw_connection();
  unsigned char packet[64];
  ASSERT_EQ(recv(fd, packet, sizeof packet, 0), 24);
  const auto refusal = ippc::reply_decode({packet, 24});
  ASSERT_TRUE(refusal);
  EXPECT_EQ(refusal->status, -3);
  EXPECT_EQ(recv(fd, packet, sizeof packet, 0), 0) << "and closed";
  close(fd);
  clients.pop_front();
  for (int tries = 0; tries < 100 && !serves(); ++tries)
    usleep(1000);
  EXPECT_TRUE(serves());
}

TEST_F(IppcServer, OneUserCannotKeepAllOthersOut)
{
  if (getuid() != 0)
    GTEST_SKIP() << "needs root";
  chmod(path.c_str(), 0666);
  std::list<ippc::client> hoard(64);
  std::vector<std::vector<unsigned char>> none;
  as_user(54321, [&] {
    for (ippc::client& client : hoard) {
      ASSERT_TRUE(client.open(path));
      ASSERT_EQ(client.call(7, none, 2s).result, 7);
    }
    hoard.front().call(7, none, 2s);  // now the second is the one that was silent longest
    EXPECT_FALSE(serves()) << "the same user has no claim on more";
  });
  ippc::client other;
  ASSERT_TRUE(other.open(path));
  EXPECT_EQ(other.call(7, none, 2s).result, 7);
  EXPECT_EQ(hoard.front().call(7, none, 2s).result, 7);
  EXPECT_EQ(std::next(hoard.begin())->call(7, none, 2s).error, ippc::call_error::busy);
  EXPECT_EQ(std::next(hoard.begin(), 2)->call(7, none, 2s).result, 7);
}

// What a request's execution found about its thread.
std::optional<caller> served;
sigset_t held_back;

int32_t look_around(ippcFuncData* request)
{
  served = current_asker() == asker::known ? std::optional(*current_caller()) : std::nullopt;
  pthread_sigmask(SIG_SETMASK, nullptr, &held_back);
  return echo(request);
}

class IppcCallback : public IppcServer {
protected:
  IppcCallback() : observer(path + ".look", look_around) { EXPECT_EQ(observer.start(), 0); }

  void ask()
  {
    served.reset();
    ippc::client client;
    std::vector<std::vector<unsigned char>> none;
    EXPECT_TRUE(client.open(path + ".look"));
    EXPECT_EQ(client.call(9, none, 2s).result, 9);
  }

  ippc::server observer;
};

TEST_F(IppcCallback, WorksInTheNameOfWhoeverConnected)
{
  ask();
  ASSERT_TRUE(served);
  EXPECT_EQ(served->user, geteuid());
  EXPECT_EQ(served->group, getegid());
  std::vector<gid_t> groups(static_cast<size_t>(getgroups(0, nullptr)));
  groups.resize(static_cast<size_t>(getgroups(static_cast<int>(groups.size()), groups.data())));
  EXPECT_EQ(served->groups, groups);
  if (getuid() != 0)
    return;
  chmod((path + ".look").c_str(), 0666);
  as_user(54321, [&] { ask(); });
  ASSERT_TRUE(served);
  EXPECT_EQ(served->user, 54321u);
}

TEST_F(IppcCallback, HoldsBackTheSignalsThatEndAndNoOther)
{
  ask();
  for (int signal = 1; signal < SIGRTMIN; ++signal)
    EXPECT_EQ(sigismember(&held_back, signal), signal == SIGINT || signal == SIGTERM) << signal;
}

TEST_F(IppcServer, EveryPacketIsAnsweredBeforeTheEndIsSeen)
{
  const int fd = raw_connection();
  std::vector<unsigned char> request;
  ippc::request_encode(42, 5, {}, request);
  std::vector<int32_t> statuses;
  for (const size_t size : {size_t{0}, size_t{0}, request.size(), size_t{0}})
    ASSERT_GE(send(fd, request.data(), size, 0), 0);
  ASSERT_EQ(shutdown(fd, SHUT_WR), 0);
  unsigned char reply[64];
  while (recv(fd, reply, sizeof reply, 0) == 24)
    statuses.push_back(ippc::reply_decode({reply, 24})->status);
  EXPECT_EQ(statuses, (std::vector{-2, -2, 0, -2}));
  close(fd);
}

TEST_F(IppcServer, DescriptorsThatAreSentAlongAreNotKept)
{
  const auto open_now = [] {
    const auto all = std::filesystem::directory_iterator("/proc/self/fd");
    return std::distance(begin(all), end(all));
  };
  const int fd = raw_connection();
  char byte = 0;
  iovec data{&byte, 1};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof fd)] = {};
  msghdr message{};
  message.msg_iov = &data;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  *CMSG_FIRSTHDR(&message) = {CMSG_LEN(sizeof fd), SOL_SOCKET, SCM_RIGHTS};
  std::memcpy(CMSG_DATA(CMSG_FIRSTHDR(&message)), &fd, sizeof fd);
  EXPECT_TRUE(serves());
  const auto before = open_now();
  unsigned char reply[64];
  for (int i = 0; i < 10; ++i) {
    ASSERT_EQ(sendmsg(fd, &message, 0), 1);
    ASSERT_EQ(recv(fd, reply, sizeof reply, 0), 24);
  }
  EXPECT_LE(open_now(), before);
  close(fd);
}

TEST_F(IppcServer, MalformedPacketsKeepTheConnectionOpen)
{
  const int fd = raw_connection();
  unsigned char reply[64];
  for (const size_t size : {size_t{0}, size_t{1}, size_t{15}, size_t{70000}}) {
    const std::vector<unsigned char> rubbish(size, 0x49);
    ASSERT_GE(send(fd, rubbish.data(), rubbish.size(), 0), 0);
    ASSERT_EQ(recv(fd, reply, sizeof reply, 0), 24) << size;
    const auto decoded = ippc::reply_decode({reply, 24});
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->status, -2);
  }
  close(fd);
}

TEST_F(IppcServer, ThousandsOfConnectionsOpenedAndDropped)
{
  for (int i = 0; i < 3000; ++i) {
    const int fd = raw_connection();
    ASSERT_GE(fd, 0);
    if (i % 3 == 0)
      send(fd, "half", 4, MSG_NOSIGNAL);
    close(fd);
  }
  EXPECT_TRUE(serves());
}

TEST_F(IppcServer, ClientThatDoesNotReadDisturbsNobody)
{
  const int fd = raw_connection();
  std::vector<unsigned char> request;
  const std::vector<unsigned char> argument(4096);
  const ippc::const_bytes views[] = {argument, argument, argument, argument, argument, argument};
  ippc::request_encode(1, 1, views, request);
  int sent = 0;
  while (send(fd, request.data(), request.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0 && sent < 10000)
    ++sent;
  EXPECT_LT(sent, 10000);  // the server takes no more of it
  EXPECT_TRUE(serves());
  // It gets every answer once it reads, and is served again.
  std::vector<unsigned char> reply(65536);
  for (int i = 0; i < sent; ++i) {
    pollfd wait{fd, POLLIN, 0};
    ASSERT_EQ(poll(&wait, 1, 2000), 1);
    ASSERT_GT(recv(fd, reply.data(), reply.size(), 0), 0);
  }
  close(fd);
}

TEST(IppcClient, TellsNoServerFromTimeOut)
{
  ippc::client nobody;
  EXPECT_FALSE(nobody.open("/nonexistent/socket"));
  const std::string path = testing::TempDir() + "mute" + std::to_string(getpid());
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, path.c_str());
  const int fd = socket(AF_UNIX, SOCK_SEQPACKET, 0);
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(fd, 1), 0);
  ippc::client client;
  ASSERT_TRUE(client.open(path));
  std::vector<std::vector<unsigned char>> none;
  EXPECT_EQ(client.call(1, none, 20ms).error, ippc::call_error::time_out);
  close(fd);
  std::filesystem::remove(path);
}

}  // namespace
