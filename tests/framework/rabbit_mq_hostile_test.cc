// The message queue client without a broker, and against servers that are none.
#include "rte/BLL/core/log.h"
#include "rte/BLL/core/mq/rabbit_mq_connection.h"
#include "rte/BLL/core/singleton.h"
#include "tests/support/files.h"
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <random>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr auto bound = RabbitMqInterSoc::longestStep + 10s;  // and some for a busy machine and the sanitizers

// On loopback; where.
sockaddr_in listen_at(int listener, int backlog)
{
  sockaddr_in address = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
  socklen_t size = sizeof address;
  bind(listener, reinterpret_cast<sockaddr*>(&address), size);
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
  listen(listener, backlog);
  return address;
}

// Listens on loopback, lets `behaviour` have one connection after another, and closes each when it returns.
class Server {
public:
  using behaviour_t = std::function<void(int client, const std::atomic<bool>& over)>;

  explicit Server(behaviour_t behaviour)
  {
    const int small = 4096;
    setsockopt(listener_, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    const sockaddr_in address = listen_at(listener_, 16);
    settings.port = ntohs(address.sin_port);
    thread_ = std::thread([this, behaviour = std::move(behaviour)] { serve(behaviour); });
  }
  ~Server()
  {
    heard();
    close(listener_);
  }
  // What its clients have said, to the end.
  const std::string& heard()
  {
    over_ = true;
    if (thread_.joinable())
      thread_.join();
    return heard_;
  }

  rabbitMqSettings_t settings;
  std::atomic<int> connections = 0;

private:
  void serve(const behaviour_t& behaviour)
  {
    while (!over_) {
      pollfd wait = {listener_, POLLIN, 0};
      if (poll(&wait, 1, 10) != 1)
        continue;
      const int client = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
      ++connections;
      behaviour(client, over_);
      char bytes[4096];
      for (ssize_t size; (size = recv(client, bytes, sizeof bytes, 0)) > 0;)
        heard_.append(bytes, static_cast<size_t>(size));
      close(client);
    }
  }

  const int listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::atomic<bool> over_ = false;
  std::string heard_;
  std::thread thread_;
};

bool sendAll(int client, std::string_view bytes, const std::atomic<bool>& over)
{
  while (!bytes.empty() && !over) {
    const ssize_t sent = send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent > 0)
      bytes.remove_prefix(static_cast<size_t>(sent));
    else if (errno != EAGAIN)
      return false;
    else
      std::this_thread::sleep_for(1ms);
  }
  return !over;
}

// Until the client hangs up.
void waitForEnd(int client, const std::atomic<bool>& over)
{
  for (pollfd wait = {client, POLLRDHUP, 0}; !over && poll(&wait, 1, 10) == 0;) {
  }
}

// Says its text, then the refrain for ever or, if there is none, nothing.
Server::behaviour_t saying(std::string text, std::string refrain = {})
{
  return [=](int client, const std::atomic<bool>& over) {
    if (sendAll(client, text, over) && refrain.empty())
      waitForEnd(client, over);
    while (!refrain.empty() && sendAll(client, refrain, over)) {
    }
  };
}

std::string bigEndian(uint64_t value, int bytes)
{
  std::string text;
  while (bytes-- > 0)
    text += static_cast<char>(value >> 8 * bytes);
  return text;
}

std::string frame(int type, int channel, const std::string& payload)
{
  return bigEndian(static_cast<uint64_t>(type), 1) + bigEndian(static_cast<uint64_t>(channel), 2) +
         bigEndian(payload.size(), 4) + payload + '\xce';
}

std::string method(int channel, uint32_t id, const std::string& arguments)
{
  return frame(1, channel, bigEndian(id, 4) + arguments);
}

// All that a broker says until the queue is declared. The client does not mind hearing an answer before it asks.
std::string welcome()
{
  return method(0, 0x000A000A, std::string("\0\x09\0\0\0\0\0\0\0\x05PLAIN\0\0\0\x05", 19) + "en_US") +  // start
         method(0, 0x000A001E, bigEndian(0, 2) + bigEndian(131072, 4) + bigEndian(0, 2)) +              // tune
         method(0, 0x000A0029, bigEndian(0, 1)) +                                                       // open-ok
         method(1, 0x0014000B, bigEndian(0, 4)) +           // channel.open-ok
         method(1, 0x0055000B, "") +                        // confirm.select-ok
         method(1, 0x0032000B, "\x01q" + bigEndian(0, 8));  // queue.declare-ok
}

const std::string confirmation = method(1, 0x003C0050, bigEndian(1, 8) + bigEndian(0, 1));
const std::string gotOne = method(1, 0x003C0047, bigEndian(1, 8) + bigEndian(0, 1 + 1 + 2) + bigEndian(0, 4));
const std::string heartbeat = frame(8, 0, "");

std::string contentHeader(uint64_t size)
{
  return frame(2, 1, bigEndian(60, 2) + bigEndian(0, 2) + bigEndian(size, 8) + bigEndian(0, 2));
}

std::string shortText(const std::string& text)
{
  return bigEndian(text.size(), 1) + text;
}

// All that a client says until its queue is declared: durable, nothing else, and no heartbeats.
std::string introduction()
{
  const std::string plain("\0guest\0guest", 12);
  return std::string("AMQP\0\0\x09\x01", 8) +
         method(0, 0x000A000B, bigEndian(0, 4) + shortText("PLAIN") + bigEndian(12, 4) + plain + shortText("en_US")) +
         method(0, 0x000A001F, bigEndian(1, 2) + bigEndian(8192, 4) + bigEndian(0, 2)) +  // tune-ok
         method(0, 0x000A0028, shortText("/") + bigEndian(0, 2)) +                        // open
         method(1, 0x0014000A, bigEndian(0, 1)) +                                         // channel.open
         method(1, 0x0055000A, bigEndian(0, 1)) +                                         // confirm.select
         method(1, 0x0032000A, bigEndian(0, 2) + shortText("q") + bigEndian(2, 1) + bigEndian(0, 4));
}

// Both calls fail within the bound, and once more at once.
void expectFailures(const rabbitMqSettings_t& settings, const std::string& message)
{
  RabbitMqInterSoc mq;
  ASSERT_TRUE(mq.enable(settings));
  std::string got = "as it was";
  const auto failsWithin = [](steady_clock::duration time, auto&& call) {
    const auto begin = steady_clock::now();
    EXPECT_FALSE(call());
    return steady_clock::now() - begin < time;
  };
  const auto consume = [&] { return mq.consume("q", got, 60'000); };
  std::thread publisher([&] { EXPECT_TRUE(failsWithin(bound, [&] { return mq.publish("q", message); })); });
  EXPECT_TRUE(failsWithin(bound, consume));
  publisher.join();
  const auto failsAtOnce = [&] { return failsWithin(400ms, consume); };
  EXPECT_TRUE(failsAtOnce() || failsAtOnce() || failsAtOnce()) << "unless it is time for another attempt";
  EXPECT_EQ(got, "as it was");
}

// The other cases prove something only if the imitation is good enough to be believed.
TEST(RabbitMqHostile, ImitatedBrokerIsBelieved)
{
  Server publishing(saying(welcome() + heartbeat + confirmation));
  Server consuming(saying(welcome() + gotOne + contentHeader(5) + frame(3, 1, "he") + frame(3, 1, "llo")));
  RabbitMqInterSoc mq;
  ASSERT_TRUE(mq.enable(publishing.settings));
  EXPECT_TRUE(mq.publish("q", "message"));
  ASSERT_TRUE(mq.enable(consuming.settings));
  std::string got;
  EXPECT_TRUE(mq.consume("q", got, 0));
  EXPECT_EQ(got, "hello");
  const std::string mandatory = bigEndian(0, 2) + shortText("") + shortText("q") + bigEndian(1, 1);
  const std::string persistent = bigEndian(0x1000, 2) + bigEndian(2, 1);
  EXPECT_EQ(publishing.heard(), introduction() + method(1, 0x003C0028, mandatory) +
                                    frame(2, 1, bigEndian(60, 2) + bigEndian(0, 2) + bigEndian(7, 8) + persistent) +
                                    frame(3, 1, "message"));
  EXPECT_EQ(consuming.heard(), introduction() +
                                   method(1, 0x003C0046, bigEndian(0, 2) + shortText("q") + bigEndian(0, 1)) +
                                   method(1, 0x003C0050, bigEndian(1, 8) + bigEndian(0, 1)));
}

TEST(RabbitMqHostile, NothingIsTouchedBeforeFirstUse)
{
  Server server(saying(""));
  const auto files = entries("/proc/self/fd");
  const auto threads = entries("/proc/self/task");
  RabbitMqInterSoc mq;
  std::string got;
  EXPECT_FALSE(mq.publish("q", "message"));
  EXPECT_FALSE(mq.consume("q", got, 60'000));
  ASSERT_TRUE(mq.enable(server.settings));
  EXPECT_FALSE(mq.publish("", "message"));
  EXPECT_FALSE(mq.publish(std::string(256, 'q'), "message"));
  EXPECT_FALSE(mq.publish("q", std::string(RabbitMqInterSoc::largestMessage + 1, 'x')));
  EXPECT_FALSE(mq.consume("", got, 60'000));
  for (auto [host, port] : {std::pair("localhost", 5672), {"", 5672}, {"127.0.0.1", 0}, {"127.0.0.1", 65536}}) {
    rabbitMqSettings_t bad;
    bad.host = host;
    bad.port = port;
    EXPECT_FALSE(mq.enable(bad)) << host << port;
  }
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(server.connections, 0);
  EXPECT_EQ(entries("/proc/self/fd"), files);
  EXPECT_EQ(entries("/proc/self/task"), threads);
}

struct keptLines_t : LogImpl {
  void writeMessageToLog(const logData_t& data) override { text += data.buffer.substr(data.buffer.find(' ') + 1); }
  std::string text;
};

TEST(RabbitMqHostile, AttemptsGetRarerAndAnOutageIsToldOnce)
{
  keptLines_t log;
  singleton<Log>::instance().reset(&log);
  Server server([refusals = 2](int client, const std::atomic<bool>& over) mutable {
    if (refusals-- <= 0)
      saying(welcome() + confirmation + confirmation)(client, over);
  });
  RabbitMqInterSoc mq;
  ASSERT_TRUE(mq.enable(server.settings));
  const auto begin = steady_clock::now();
  while (!mq.publish("q", "message") && steady_clock::now() - begin < 20s)
    std::this_thread::sleep_for(5ms);
  EXPECT_GE(steady_clock::now() - begin, 1500ms);
  EXPECT_EQ(server.connections, 3);
  EXPECT_TRUE(mq.publish("q", "message"));
  singleton<Log>::instance().reset(nullptr);
  const std::string broker = "Message broker 127.0.0.1:" + std::to_string(server.settings.port);
  EXPECT_EQ(log.text, broker + " has failed while logging in.\n" + broker + " answers again.\n");

  std::vector<int64_t> intervals;
  for (milliseconds interval(0); intervals.size() < 8; intervals.push_back(interval.count()))
    interval = RabbitMqConnection::backOffAfter(interval);
  EXPECT_THAT(intervals, testing::ElementsAre(500, 1000, 2000, 4000, 8000, 16000, 30000, 30000));
}

struct conduct_t {
  const char* name;
  Server::behaviour_t behaviour;
  size_t messageSize = 7;
};

void speakInDrops(int client, const std::atomic<bool>& over)
{
  for (const char byte : welcome() + confirmation) {
    if (!sendAll(client, {&byte, 1}, over))
      return;
    std::this_thread::sleep_for(50ms);
  }
}

// All at the same time, since most of it is waiting.
TEST(RabbitMqHostile, WhateverTheServerDoesBothCallsFailInTime)
{
  const std::string heartbeats = heartbeat + heartbeat + heartbeat + heartbeat;
  const std::string sized3 = welcome() + gotOne + contentHeader(3);
  const std::string endless = welcome() + gotOne + contentHeader(uint64_t{1} << 60);
  const conduct_t conducts[] = {
      {"SaysNothing", saying("")},
      {"SpeaksHttp", saying("HTTP/1.1 400 Bad Request\r\n\r\n")},
      {"SpeaksAnOlderVersion", saying(std::string("AMQP\1\1\0\x09", 8))},
      {"AnnouncesAGiantFrame", saying(std::string("\x01\0\0\xff\xff\xff\xff", 7))},
      {"HeartbeatsAtOnce", saying("", heartbeats)},
      {"HeartbeatsAfterwards", saying(welcome(), heartbeats)},
      {"ReadsNothing", saying(welcome()), RabbitMqInterSoc::largestMessage},
      {"EndlessContent", saying(endless, frame(3, 1, std::string(8000, 'x')))},
      {"MoreContentThanAnnounced", saying(sized3 + frame(3, 1, "four"))},
      {"EmptyPieces", saying(sized3, frame(3, 1, ""))},
      {"AnswersInDrops", speakInDrops},
  };
  rabbitMqSettings_t nobody;
  nobody.port = Server(saying("")).settings.port;  // gone again
  int crowd[4];                                    // fills the queue of one that accepts nobody
  for (int& fd : crowd)
    fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const sockaddr_in full = listen_at(crowd[0], 0);
  for (const int fd : {crowd[1], crowd[2], crowd[3]})
    connect(fd, reinterpret_cast<const sockaddr*>(&full), sizeof full);
  rabbitMqSettings_t busy;
  busy.port = ntohs(full.sin_port);
  std::vector<std::thread> cases;
  cases.emplace_back([&] { expectFailures(busy, "message"); });
  for (const conduct_t& conduct : conducts)
    cases.emplace_back([&conduct] {
      SCOPED_TRACE(conduct.name);
      Server server(conduct.behaviour);
      expectFailures(server.settings, std::string(conduct.messageSize, 'x'));
    });
  expectFailures(nobody, "message");
  for (std::thread& one : cases)
    one.join();
  for (const int fd : crowd)
    close(fd);
}

TEST(RabbitMqHostile, RandomDamage)
{
  std::mt19937 random(7);
  const std::string whole = welcome() + gotOne + contentHeader(5) + frame(3, 1, "hello");
  Server server([&](int client, const std::atomic<bool>& over) {
    std::string text = whole;
    for (auto changes = random() % 4; changes > 0; --changes)
      text[random() % text.size()] = static_cast<char>(random());
    text.resize(random() % 2 ? text.size() : random() % text.size());
    sendAll(client, text, over);
    shutdown(client, SHUT_WR);
    waitForEnd(client, over);
  });
  int wholeMessages = 0;
  for (int i = 0; i < 500; ++i) {
    RabbitMqInterSoc mq;
    ASSERT_TRUE(mq.enable(server.settings));
    const auto begin = steady_clock::now();
    std::string got;
    const bool took = mq.consume("q", got, 0);
    EXPECT_TRUE(took || got.empty());
    wholeMessages += got == "hello";
    EXPECT_LT(steady_clock::now() - begin, bound);
  }
  EXPECT_EQ(server.connections, 500);
  EXPECT_GT(wholeMessages, 0);
  EXPECT_LT(wholeMessages, 400);
}

}  // namespace
