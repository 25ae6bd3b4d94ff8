// Calls and their replies as bytes: what each message is answered, and records on a connection however they come.
#include "rte/BLL/core/rpc/access.h"
#include "rte/BLL/core/rpc/call.h"
#include "rte/BLL/core/rpc/server.h"

#include <algorithm>
#include <arpa/inet.h>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <rpc/rpc.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

constexpr uint32_t program = 0x20000099, version = 3, procedure = 5;

using words = std::vector<uint32_t>;

std::string packed(const words& all)
{
  std::string bytes;
  for (const uint32_t word : all) {
    const uint32_t big = htonl(word);
    bytes.append(reinterpret_cast<const char*>(&big), sizeof big);
  }
  return bytes;
}

words unpacked(const std::string& bytes)
{
  words all;
  for (size_t at = 0; at + 4 <= bytes.size(); at += 4) {
    uint32_t big;
    std::memcpy(&big, &bytes[at], sizeof big);
    all.push_back(ntohl(big));
  }
  return all;
}

std::string seen;  // by the last call

// Answers the number after the one sent.
void dispatch(svc_req* request, SVCXPRT* transport)
{
  const auto* names = reinterpret_cast<const authunix_parms*>(request->rq_clntcred);
  const auto* caller = static_cast<const sockaddr_in*>(transport->xp_rtaddr.buf);
  const auto* own = static_cast<const sockaddr_in*>(transport->xp_ltaddr.buf);
  EXPECT_EQ(transport->xp_addrlen, static_cast<int>(sizeof *caller));
  EXPECT_EQ(std::memcmp(svc_getcaller(transport), caller, sizeof *caller), 0) << "where it used to be";
  seen = std::to_string(request->rq_proc) + " " + transport->xp_netid + " " + std::to_string(transport->xp_port) + " " +
         std::to_string(ntohs(caller->sin_port)) + " " + std::to_string(ntohs(own->sin_port)) +
         (names ? std::string(" ") + names->aup_machname + " " + std::to_string(names->aup_gids[0]) : "");
  int number = 0;
  if (!svc_getargs(transport, reinterpret_cast<xdrproc_t>(xdr_int), &number))
    return svcerr_decode(transport);
  ++number;
  svc_sendreply(transport, reinterpret_cast<xdrproc_t>(xdr_int), &number);
  EXPECT_TRUE(svc_freeargs(transport, reinterpret_cast<xdrproc_t>(xdr_int), &number));
}

constexpr rpcService_t service{program, version, dispatch};
constexpr uint16_t own_port = 901, caller_port = 902;

sockaddr_in at(uint16_t port)
{
  return {AF_INET, htons(port), {}, {}};
}

std::optional<caller> admitAll(const rpcPeer_t&, const svc_req&)
{
  return caller{0, 0, {}};
}

std::optional<caller> admitNone(const rpcPeer_t&, const svc_req&)
{
  return {};
}

words answer(const words& message, int protocol = IPPROTO_UDP, const rpcAdmit_t& admit = admitAll, size_t most = 1000)
{
  std::string bytes = packed(message);
  seen.clear();
  return unpacked(rpcAnswer(service, bytes, {-1, protocol, at(own_port), at(caller_port)}, admit, most));
}

// A call with no credential and one number.
words call(uint32_t id, uint32_t number, uint32_t called = procedure)
{
  return {id, 0, 2, program, version, called, 0, 0, 0, 0, number};
}

words success(uint32_t id, uint32_t number)
{
  return {id, 1, 0, 0, 0, 0, number};
}

TEST(RpcCall, EachMessageHasItsReply)
{
  EXPECT_EQ(answer(call(7, 41)), success(7, 42));
  EXPECT_EQ(seen, "5 udp 901 902 901");
  const words named = {8, 0, 2, program, version, procedure, 1, 28, 9, 1, 'h' << 24, 5, 6, 1, 77, 0, 0, 41};
  EXPECT_EQ(answer(named, IPPROTO_TCP), success(8, 42));
  EXPECT_EQ(seen, "5 tcp 901 902 901 h 77");
  EXPECT_EQ(answer(call(7, 41), IPPROTO_UDP, admitNone), (words{7, 1, 1, 1, 5}));
  EXPECT_EQ(seen, "");
  EXPECT_EQ(answer(call(7, 41, 0), IPPROTO_UDP, admitNone), success(7, 42)) << "the null procedure is open to all";

  EXPECT_EQ(answer({7, 0, 2, program + 1, version, procedure, 0, 0, 0, 0}), (words{7, 1, 0, 0, 0, 1}));
  EXPECT_EQ(answer({7, 0, 2, program, version + 1, procedure, 0, 0, 0, 0}),
            (words{7, 1, 0, 0, 0, 2, version, version}));
  EXPECT_EQ(answer({7, 0, 2, program, version, procedure, 0, 0, 0, 0}), (words{7, 1, 0, 0, 0, 4}));
  EXPECT_EQ(answer({7, 0, 2, program, version, procedure, 3, 0, 0, 0, 41}), (words{7, 1, 1, 1, 2}));
  EXPECT_EQ(answer({7, 0, 2, program, version, procedure, 1, 4, 9, 0, 0, 41}), (words{7, 1, 1, 1, 1}));
  EXPECT_EQ(answer({7, 0, 3, program, version, procedure, 0, 0, 0, 0}), (words{7, 1, 1, 0, 2, 2}));
  EXPECT_EQ(answer({7, 0, 2, program}), (words{7, 1, 0, 0, 0, 4}));
  for (const words& no_call : {words{}, words{7}, words{7, 1, 0, 0, 0, 0}, words{7, 2, 2, program}})
    EXPECT_EQ(answer(no_call), words{});
  EXPECT_EQ(answer(call(7, 41), IPPROTO_UDP, admitAll, 28), success(7, 42));
  EXPECT_EQ(answer(call(7, 41), IPPROTO_UDP, admitAll, 27), words{});
}

TEST(RpcConnection, TakesRecordsHoweverTheyCome)
{
  constexpr uint32_t last = 0x80000000;
  const std::string first = packed(call(1, 10)), second = packed(call(2, 20));
  const std::string sent = packed({20}) + first.substr(0, 20) + packed({0}) + packed({last | 24}) + first.substr(20) +
                           packed({last | 8}) + packed({3, 1}) + packed({last | 44}) + second;
  std::string expected;
  for (const words& reply : {success(1, 11), success(2, 21)})
    expected += packed({last | 28}) + packed(reply);
  for (const size_t step : {size_t{1}, size_t{7}, sent.size()}) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
    {
      rpcConnection_t connection(ends[0], service, at(own_port), at(caller_port));
      EXPECT_TRUE(connection.tend(admitAll)) << "nothing has come yet";
      for (size_t done = 0; done < sent.size(); done += step) {
        const size_t part = std::min(step, sent.size() - done);
        ASSERT_EQ(send(ends[1], sent.data() + done, part, 0), static_cast<ssize_t>(part));
        ASSERT_TRUE(connection.tend(admitAll));
        EXPECT_EQ(connection.events(), POLLIN);
      }
      char got[1000];
      const ssize_t count = recv(ends[1], got, sizeof got, 0);
      EXPECT_EQ(std::string(got, static_cast<size_t>(std::max<ssize_t>(count, 0))), expected);
      const std::string tooLong = packed({rpcConnection_t::largestRecord}), over = packed({last | 1});
      EXPECT_GT(send(ends[1], tooLong.data(), tooLong.size(), 0), 0);
      EXPECT_TRUE(connection.tend(admitAll));
      const std::string whole(rpcConnection_t::largestRecord, 'x');
      size_t done = 0;
      for (int tries = 0; done < whole.size() && tries < 1000; ++tries) {
        const ssize_t part = send(ends[1], whole.data() + done, whole.size() - done, 0);
        done += static_cast<size_t>(std::max<ssize_t>(part, 0));
        ASSERT_TRUE(connection.tend(admitAll));
      }
      ASSERT_EQ(done, whole.size());
      EXPECT_GT(send(ends[1], over.data(), over.size(), 0), 0);
      bool open = true;
      for (int tries = 0; open && tries < 1000; ++tries)
        open = connection.tend(admitAll);
      EXPECT_FALSE(open) << "a byte more than a record may have";
    }
    char none;
    EXPECT_EQ(recv(ends[1], &none, 1, 0), 0) << "closed";
    close(ends[1]);
  }
}

// A client that does not read is not listened to; all it has asked is answered, even if it has said that it is done.
TEST(RpcConnection, AnswersASlowReaderInTheEnd)
{
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
  constexpr int small = 1;
  setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
  rpcConnection_t connection(ends[0], service, at(own_port), at(caller_port));
  std::string expected;
  uint32_t asked = 0;
  for (; connection.events() == POLLIN && asked < 10'000; ++asked) {
    const std::string bytes = packed({0x80000000 | 44}) + packed(call(asked, asked));
    ASSERT_EQ(send(ends[1], bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    expected += packed({0x80000000 | 28}) + packed(success(asked, asked + 1));
    ASSERT_TRUE(connection.tend(admitAll));
  }
  EXPECT_EQ(connection.events(), POLLOUT);
  const std::string more = packed({0x80000000 | 44}) + packed(call(7, 8));
  ASSERT_EQ(send(ends[1], more.data(), more.size(), 0), static_cast<ssize_t>(more.size()));
  expected += packed({0x80000000 | 28}) + packed(success(7, 9));
  seen.clear();
  ASSERT_TRUE(connection.tend(admitAll));
  EXPECT_EQ(seen, "") << "not before it has read";
  shutdown(ends[1], SHUT_WR);
  std::string got;
  const auto read = [&] {
    char bytes[100];
    ssize_t count = 0;
    while ((count = recv(ends[1], bytes, sizeof bytes, 0)) > 0)
      got.append(bytes, static_cast<size_t>(count));
  };
  int tries = 0;
  for (read(); connection.tend(admitAll) && tries < 1000; ++tries)
    read();
  read();
  EXPECT_EQ(got, expected);
  EXPECT_LT(tries, 1000) << "the end is never found";
  close(ends[1]);
}

class RpcServer : public testing::Test {
protected:
  static sockaddr_in address_of(int fd)
  {
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    return address;
  }
  static int bound(int type)
  {
    const int fd = socket(AF_INET, type, 0);
    const sockaddr_in loopback = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&loopback), sizeof loopback), 0);
    if (type == SOCK_STREAM)
      listen(fd, 512);
    return fd;
  }
  int connected(int type, const sockaddr_in& to)
  {
    const int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
    fcntl(fd, F_SETFL, O_NONBLOCK);
    clients.push_back(fd);
    return fd;
  }
  // What the next bytes are, "closed" or "nothing", once the server has done all it can.
  std::string ask(int fd, const std::string& message)
  {
    send(fd, message.data(), message.size(), MSG_NOSIGNAL);
    serve(3);
    char bytes[100];
    const ssize_t count = recv(fd, bytes, sizeof bytes, 0);
    return count == 0 ? "closed" : count < 0 ? "nothing" : std::string(bytes, static_cast<size_t>(count));
  }
  void serve(int rounds)
  {
    for (int i = 0; i < rounds; ++i) {
      eventfd_write(wake, 1);
      EXPECT_TRUE(server.serve(wake));
    }
  }
  ~RpcServer() override
  {
    for (const int fd : clients)
      close(fd);
    close(wake);
  }

  const int wake = eventfd(0, EFD_NONBLOCK);
  std::vector<int> clients;
  const std::string called = packed(call(7, 41)), answered = packed(success(7, 42));
  const std::string record = packed({0x80000000 | 44}) + called, answer_record = packed({0x80000000 | 28}) + answered;
  rpcServer_t server{admitAll};
};

TEST_F(RpcServer, ServesBothProtocolsUntilTheProgramIsRemoved)
{
  EXPECT_EQ(rpcServer_t::ofThisThread(), &server);
  const int udp = bound(SOCK_DGRAM), tcp = bound(SOCK_STREAM);
  const sockaddr_in listens = address_of(tcp);
  server.add(service, udp, IPPROTO_UDP);
  server.add(service, tcp, IPPROTO_TCP);
  const int datagrams = connected(SOCK_DGRAM, address_of(udp)), stream = connected(SOCK_STREAM, listens);
  const auto ports = [](const char* name, int server_fd, int client) {
    const std::string own = std::to_string(ntohs(address_of(server_fd).sin_port));
    return std::string("5 ") + name + " " + own + " " + std::to_string(ntohs(address_of(client).sin_port)) + " " + own;
  };
  EXPECT_EQ(ask(datagrams, called), answered);
  EXPECT_EQ(seen, ports("udp", udp, datagrams));
  EXPECT_EQ(ask(stream, record), answer_record);
  EXPECT_EQ(seen, ports("tcp", tcp, stream));
  EXPECT_EQ(ask(stream, "too little"), "closed") << "a giant record";

  const int other = connected(SOCK_STREAM, listens);
  serve(1);
  server.remove(program, version + 1);
  server.remove(program + 1, version);
  EXPECT_EQ(ask(datagrams, called), answered);
  server.remove(program, version);
  EXPECT_EQ(fcntl(udp, F_GETFD), -1);
  EXPECT_EQ(fcntl(tcp, F_GETFD), -1);
  EXPECT_EQ(ask(other, record), answer_record) << "until its client ends it";
  send(other, record.data(), record.size(), 0);
  EXPECT_TRUE(server.serve(-1)) << "an eventfd that could not be made";
  char bytes[100];
  EXPECT_EQ(recv(other, bytes, sizeof bytes, 0), static_cast<ssize_t>(answer_record.size()));
}

TEST_F(RpcServer, ClosesThoseSilentForLongestWhenThereAreTooMany)
{
  const int tcp = bound(SOCK_STREAM);
  const sockaddr_in listens = address_of(tcp);
  server.add(service, tcp, IPPROTO_TCP);
  for (size_t i = 0; i < rpcServer_t::mostConnections; ++i) {
    connected(SOCK_STREAM, listens);
    serve(1);
  }
  EXPECT_EQ(ask(clients[0], record), answer_record);
  const int last = connected(SOCK_STREAM, listens);
  serve(1);
  EXPECT_EQ(ask(clients[1], record), "closed");
  EXPECT_EQ(ask(clients[2], record), answer_record);
  EXPECT_EQ(ask(clients[0], record), answer_record);
  EXPECT_EQ(ask(last, record), answer_record);

  rlimit before;
  getrlimit(RLIMIT_NOFILE, &before);
  const int waiting = connected(SOCK_STREAM, listens);
  const int next = dup(waiting);
  close(next);
  const rlimit none_left = {static_cast<rlim_t>(next), before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none_left);
  EXPECT_EQ(ask(waiting, record), answer_record) << "in the place of another";
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(ask(clients[3], record), "closed");
  EXPECT_EQ(ask(clients[4], record), answer_record);
}

TEST_F(RpcServer, ServesOnUnlessWaitingFails)
{
  rlimit before;
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit none = {0, before.rlim_max};
  auto& served = server;  // UBSan opens files to look at an object
  const int by = wake;
  setrlimit(RLIMIT_NOFILE, &none);
  const bool serves = served.serve(by);
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_FALSE(serves);
  const auto usual = std::signal(SIGALRM, [](int) {});
  const itimerval soon{{}, {0, 1000}};
  setitimer(ITIMER_REAL, &soon, nullptr);
  EXPECT_TRUE(server.serve(wake)) << "beside signals";
  EXPECT_TRUE(server.serve(wake)) << "when nothing comes for long";
  std::signal(SIGALRM, usual);
}

TEST(RpcRefusals, OneAMinuteIsToldWithTheNumberOfTheOthers)
{
  rpcRefusals_t refusals;
  std::string told;
  for (const int second : {100, 100, 159, 160, 160, 219, 400, 460}) {
    const auto unsaid = refusals.tell(std::chrono::steady_clock::time_point(std::chrono::seconds(second)));
    told += unsaid ? std::to_string(*unsaid) : "-";
  }
  EXPECT_EQ(told, "0--2--20");
}

}  // namespace
