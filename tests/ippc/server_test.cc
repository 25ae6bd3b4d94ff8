// The server on a real socket: many clients, dead ones, rude ones.
#include "base/caller.h"
#include "platform/ippc/client.h"
#include "platform/ippc/server.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <list>
#include <numeric>
#include <optional>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {
constexpr gid_t operators = 54322;  // nobody's on any machine
}

// The group of those who may ask.
extern "C" group* getgrnam(const char* name)
{
  static group found{.gr_name = nullptr, .gr_passwd = nullptr, .gr_gid = operators, .gr_mem = nullptr};
  return std::strcmp(name, "pppoeia") == 0 ? &found : nullptr;
}

// A kernel of before Linux 4.13 knows of no further groups.
static bool kernel_is_old = false;
extern "C" int getsockopt(int fd, int level, int name, void* value, socklen_t* size) noexcept
{
  if (!kernel_is_old || name != SO_PEERGROUPS)
    return static_cast<int>(syscall(SYS_getsockopt, fd, level, name, value, size));
  errno = ENOPROTOOPT;
  return -1;
}

namespace {

using namespace std::chrono_literals;

int32_t echo(ippcFuncData* request)
{
  if (!ippcFuncDataIsValid(request))
    return -2;
  const int32_t result = request->functionId;
  return ippcFuncDataAddRetVal(request, &result, sizeof result);
}

sockaddr_un address_of(const std::string& path)
{
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, path.c_str());
  return address;
}

// A socket bound to the path, of which nobody knows yet.
int bound_socket(const std::string& path)
{
  const sockaddr_un address = address_of(path);
  const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return fd;
}

// The request that the server answers with its function id.
ippc::call_reply ask(ippc::client& client, std::chrono::milliseconds patience = 2s)
{
  std::vector<std::vector<unsigned char>> none;
  return client.call(7, none, patience);
}

// The status of the next reply, which has to be one without arguments; nothing at the end.
std::optional<int32_t> status_received(int fd)
{
  unsigned char reply[64];
  if (recv(fd, reply, sizeof reply, 0) != 24)
    return std::nullopt;
  return ippc::reply_decode({reply, 24})->status;
}

class IppcServer : public testing::Test {
protected:
  IppcServer() : path(testing::TempDir() + "ippc" + std::to_string(getpid())), server(path, echo)
  {
    EXPECT_EQ(server.start(), 0);
  }

  int raw_connection() const
  {
    const sockaddr_un address = address_of(path);
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? fd : -1;
  }

  bool serves() const
  {
    ippc::client client;
    return client.open(path) && ask(client).result == 7;
  }

  std::string path;
  ippc::server server;
};

TEST_F(IppcServer, AnswersOnASocketForItsGroupAndLeavesNothing)
{
  const std::string longest = path + std::string(107 - path.size(), 'x');
  const mode_t former = umask(0027);
  const auto before = entries("/proc/self/fd");
  {
    ippc::server other(longest, echo);
    ASSERT_EQ(other.start(), 0);
    struct stat file {};
    ASSERT_EQ(stat(longest.c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 0777, 0660u);
    EXPECT_EQ(file.st_gid, getuid() == 0 ? operators : getegid());
    ippc::client client, late;
    EXPECT_TRUE(client.open(longest));
    EXPECT_EQ(ask(client).result, 7);
    EXPECT_TRUE(late.open(longest));
  }
  EXPECT_FALSE(std::filesystem::exists(longest));
  const std::pair<std::string, int> refused[] = {
      {longest + "x", ENAMETOOLONG}, {"", ENAMETOOLONG}, {"/nonexistent/socket", ENOENT}};
  for (const auto& [bad, why] : refused) {
    EXPECT_EQ(ippc::server(bad, echo).start(), -1);
    EXPECT_EQ(errno, why);
  }
  EXPECT_FALSE(ippc::client().open(longest + "x"));
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(entries("/proc/self/fd"), before);
  EXPECT_EQ(umask(former), 0027u);
}

TEST_F(IppcServer, SocketOfALivingServerIsNotTakenAStaleOneIs)
{
  ippc::server second(path, echo);
  errno = ECONNREFUSED;
  EXPECT_EQ(second.start(), -1);
  EXPECT_EQ(errno, EADDRINUSE);
  EXPECT_TRUE(serves());

  const std::string stale = path + ".stale";
  close(bound_socket(stale));
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
  for (ippc::client& client : clients) {
    ASSERT_TRUE(client.open(path));
    EXPECT_EQ(ask(client).result, 7);
  }
  for (int i = 0; i < 100; ++i) {
    ippc::client more;
    EXPECT_TRUE(more.open(path));
    EXPECT_EQ(ask(more).error, ippc::call_error::busy);
    EXPECT_NE(ask(more).error, ippc::call_error::none);
  }
  const int fd = raw_connection();
  EXPECT_EQ(status_received(fd), -3);
  EXPECT_EQ(status_received(fd), std::nullopt) << "and closed";
  close(fd);
  clients.pop_front();
  for (int tries = 0; tries < 100 && !serves(); ++tries)
    usleep(1000);
  EXPECT_TRUE(serves());
}

TEST_F(IppcServer, AnswersCallsThatAreUnderWayTogether)
{
  ippc::client client;
  ASSERT_TRUE(client.open(path));
  std::vector<ippc::pending_call> calls(5);
  for (const size_t together : {1, 2, 5, 9}) {
    for (ippc::pending_call& one : calls)
      one = {.function_id = static_cast<uint16_t>(one.function_id + 1 + (&one - calls.data())),
             .arguments = {},
             .reply = {}};
    EXPECT_EQ(client.call_all(calls, together, 2s), ippc::call_error::none);
    for (const ippc::pending_call& one : calls)
      EXPECT_EQ(one.reply.result, one.function_id);
  }
}

TEST_F(IppcServer, OneUserCannotKeepAllOthersOut)
{
  if (getuid() != 0)
    GTEST_SKIP() << "needs root";
  chmod(path.c_str(), 0666);
  std::list<ippc::client> hoard(64);
  as_user(54321, [&] {
    for (ippc::client& client : hoard) {
      ASSERT_TRUE(client.open(path));
      ASSERT_EQ(ask(client).result, 7);
    }
    for (auto client = hoard.rbegin(); client != hoard.rend(); ++client)
      ask(*client);  // so the last one is silent longest
    EXPECT_FALSE(serves()) << "the same user has no claim on more";
  });
  ippc::client own;
  EXPECT_TRUE(own.open(path) && ask(own).result == 7);
  EXPECT_EQ(ask(hoard.back()).error, ippc::call_error::busy);
  hoard.pop_back();
  for (ippc::client& client : hoard)
    EXPECT_EQ(ask(client).result, 7);
  std::list<ippc::client> others;
  as_user(54322, [&] {
    do
      EXPECT_TRUE(others.emplace_back().open(path));
    while (ask(others.back()).error == ippc::call_error::none);
  });
  EXPECT_EQ(others.size(), 32u) << "the last one would have had as many as he who has most";
  EXPECT_EQ(ask(own).result, 7);
}

TEST_F(IppcServer, WithoutDescriptorsThoseWhoComeWait)
{
  const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  const sockaddr_un address = address_of(path);
  rlimit former{};
  getrlimit(RLIMIT_NOFILE, &former);
  const rlimit none{STDERR_FILENO + 1, former.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(send(fd, "", 1, 0), 1);
  pollfd answer{fd, POLLIN, 0};
  EXPECT_EQ(poll(&answer, 1, 20), 0);
  setrlimit(RLIMIT_NOFILE, &former);
  EXPECT_EQ(status_received(fd), -2);
  close(fd);
}

// As a program that ends in good order, whose second server finds the first one's path taken.
TEST(IppcProgram, ServesToItsEndAndLeavesNothing)
{
  const std::string path = testing::TempDir() + "ippc-program" + std::to_string(getpid());
  const pid_t child = fork();
  if (child == 0) {
    const ippcServer description{.path = path.c_str(), .callback = echo, .reserved = 0};
    ippc::client client;
    const bool served = kvInitIppc() == 0 && kvStartIppcServer(&description) == 0 && client.open(path) &&
                        ask(client).result == 7 && kvStartIppcServer(&description) == -1 && errno == EADDRINUSE &&
                        ask(client).result == 7;
    std::exit(served ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(std::filesystem::exists(path));
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

  void request()
  {
    served.reset();
    ippc::client client;
    EXPECT_TRUE(client.open(path + ".look"));
    EXPECT_EQ(ask(client).result, 7);
  }

  ippc::server observer;
};

TEST_F(IppcCallback, WorksInTheNameOfWhoeverConnected)
{
  request();
  ASSERT_TRUE(served);
  EXPECT_EQ(served->user, geteuid());
  EXPECT_EQ(served->group, getegid());
  std::vector<gid_t> groups(static_cast<size_t>(getgroups(0, nullptr)));
  groups.resize(static_cast<size_t>(getgroups(static_cast<int>(groups.size()), groups.data())));
  EXPECT_EQ(served->groups, groups);
  kernel_is_old = true;
  request();
  kernel_is_old = false;
  ASSERT_TRUE(served);
  EXPECT_TRUE(served->groups.empty());
  if (getuid() != 0)
    return;
  chmod((path + ".look").c_str(), 0666);
  std::vector<gid_t> many(100);
  std::iota(many.begin(), many.end(), 1000u);
  setgroups(many.size(), many.data());
  as_user(54321, [&] { request(); });
  setgroups(groups.size(), groups.data());
  ASSERT_TRUE(served);
  EXPECT_EQ(served->user, 54321u);
  EXPECT_EQ(served->groups, many);
}

TEST_F(IppcCallback, HoldsBackTheSignalsThatEndAndNoOther)
{
  request();
  for (int signal = 1; signal < SIGRTMIN; ++signal)
    EXPECT_EQ(sigismember(&held_back, signal), signal == SIGINT || signal == SIGTERM) << signal;
}

TEST_F(IppcServer, EveryPacketIsAnsweredBeforeTheEndIsSeen)
{
  const int fd = raw_connection();
  std::vector<unsigned char> request;
  ippc::request_encode(42, 5, {}, request);
  for (const size_t size : {0, 0, 1, 15, 70'000}) {
    const std::vector<unsigned char> rubbish(size, 0x49);
    ASSERT_GE(send(fd, rubbish.data(), rubbish.size(), 0), 0);
  }
  ASSERT_GE(send(fd, request.data(), request.size(), 0), 0);
  ASSERT_GE(send(fd, nullptr, 0, 0), 0);
  ASSERT_EQ(shutdown(fd, SHUT_WR), 0);
  std::vector<int32_t> statuses;
  while (const auto status = status_received(fd))
    statuses.push_back(*status);
  EXPECT_EQ(statuses, (std::vector{-2, -2, -2, -2, -2, 0, -2}));
  close(fd);
}

TEST_F(IppcServer, DescriptorsThatAreSentAlongAreNotKept)
{
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
  const auto before = entries("/proc/self/fd");
  for (int i = 0; i < 10; ++i) {
    ASSERT_EQ(sendmsg(fd, &message, 0), 1);
    ASSERT_EQ(status_received(fd), -2);
  }
  EXPECT_LE(entries("/proc/self/fd"), before);
  close(fd);
}

TEST_F(IppcServer, ClientThatDoesNotReadDisturbsNobody)
{
  const int fd = raw_connection();
  std::vector<unsigned char> request;
  const std::vector<unsigned char> argument(4096);
  const const_bytes views[] = {argument, argument, argument, argument, argument, argument};
  ippc::request_encode(1, 1, views, request);
  const auto is_taken = [&] {
    pollfd room{fd, POLLOUT, 0};
    do
      if (send(fd, request.data(), request.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0)
        return true;
    while (poll(&room, 1, 300) == 1);
    return false;
  };
  int sent = 0;
  while (sent < 10000 && is_taken())
    ++sent;
  EXPECT_LT(sent, 10000);  // the server, which cannot reply, takes no more of it
  EXPECT_TRUE(serves());
  // It gets every answer once it reads, and is served again.
  std::vector<unsigned char> reply(65536);
  for (int i = 0; i < sent; ++i) {
    pollfd wait{fd, POLLIN, 0};
    ASSERT_EQ(poll(&wait, 1, 10'000), 1);
    ASSERT_GT(recv(fd, reply.data(), reply.size(), 0), 0);
  }
  close(fd);
}

TEST(IppcClient, TellsApartWhyThereIsNoReply)
{
  ippc::client nobody;
  EXPECT_FALSE(nobody.open("/nonexistent/socket"));
  const std::string path = testing::TempDir() + "mute" + std::to_string(getpid());
  const int fd = bound_socket(path);
  ASSERT_EQ(listen(fd, 1), 0);
  ippc::client client;
  ASSERT_TRUE(client.open(path));
  EXPECT_EQ(ask(client, 20ms).error, ippc::call_error::time_out);
  std::vector<ippc::pending_call> more(2000);  // than there is room for
  EXPECT_EQ(client.call_all(more, more.size(), 20ms), ippc::call_error::time_out);
  EXPECT_EQ(more.back().reply.error, ippc::call_error::time_out);
  EXPECT_EQ(ask(client, 20ms).error, ippc::call_error::time_out);
  close(accept(fd, nullptr, nullptr));
  EXPECT_EQ(client.call_all(more, 1, 20ms), ippc::call_error::no_server);
  // Of what a server may send first, only the reply to this call is one.
  const auto outcome = [&](const std::vector<unsigned char>& reply) {
    ippc::client caller;
    EXPECT_TRUE(caller.open(path));
    const int end = accept(fd, nullptr, nullptr);
    EXPECT_EQ(send(end, reply.data(), reply.size(), 0), static_cast<ssize_t>(reply.size()));
    shutdown(end, SHUT_WR);
    const ippc::call_error error = ask(caller).error;
    close(end);
    return error;
  };
  const auto answered = [&](const ippc::reply& reply) {
    std::vector<unsigned char> packet;
    reply_encode(reply, packet);
    return outcome(packet);
  };
  using enum ippc::call_error;
  EXPECT_EQ(answered({.function_id = 7, .sequence = 1, .arguments = {}}), none);
  EXPECT_EQ(answered({.function_id = 7, .sequence = 2, .arguments = {}}), protocol);
  EXPECT_EQ(answered({.function_id = 8, .sequence = 1, .arguments = {}}), protocol);
  EXPECT_EQ(answered({.status = -3, .arguments = {}}), busy);
  EXPECT_EQ(outcome({0x49}), protocol);
  EXPECT_EQ(outcome({}), no_server);
  close(fd);
  std::filesystem::remove(path);
}

}  // namespace
