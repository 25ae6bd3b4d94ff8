// The message-queue client against a real broker, and against what is none.
#include "rte/BLL/core/rabbit_mq_inter_soc.h"

#include <arpa/inet.h>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using steady_t = std::chrono::steady_clock;

int listenOnLoopback(int& port)
{
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  listen(fd, 4);
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  port = ntohs(address.sin_port);
  return fd;
}

int freePort()
{
  int port = 0;
  close(listenOnLoopback(port));
  return port;
}

TEST(MessageQueue, IsOffUntilItIsEnabled)
{
  RabbitMqInterSoc queue;
  std::string message = "as it was";
  EXPECT_FALSE(queue.publish("q", "m"));
  EXPECT_FALSE(queue.consume("q", message, 10));
  EXPECT_EQ(message, "as it was");
}

TEST(MessageQueue, NoBrokerFailsAtOnceAndBacksOff)
{
  RabbitMqInterSoc queue;
  queue.enable({.port = freePort()});
  EXPECT_FALSE(queue.publish("q", "m"));
  std::string message;
  EXPECT_FALSE(queue.consume("q", message, 10'000)) << "and does not wait for what cannot come";
  EXPECT_FALSE(queue.publish("", "m"));
  EXPECT_FALSE(queue.publish(std::string(256, 'q'), "m"));
  EXPECT_FALSE(queue.publish("q", std::string(RabbitMqInterSoc::largestMessage + 1, 'm')));
}

// Answers whoever connects with `bytes` and then says no more.
class pretender_t {
public:
  explicit pretender_t(const std::string& bytes)
  {
    fd_ = listenOnLoopback(port);
    thread_ = std::thread([this, bytes] {
      for (int client; (client = accept(fd_, nullptr, nullptr)) >= 0; ++connections) {
        (void)!write(client, bytes.data(), bytes.size());
        clients_.push_back(client);
      }
    });
  }
  ~pretender_t()
  {
    shutdown(fd_, SHUT_RDWR);
    thread_.join();
    close(fd_);
    for (const int client : clients_)
      close(client);
  }
  int port = 0;
  std::atomic<int> connections = 0;

private:
  int fd_;
  std::thread thread_;
  std::vector<int> clients_;
};

TEST(MessageQueue, WhoSpeaksSomethingElseCostsABoundedWait)
{
  for (const std::string& bytes :
       {std::string(), std::string("HTTP/1.1 400 Bad Request\r\n\r\n"), std::string("\x01\0\0\xff\xff\xff\xff", 7)}) {
    pretender_t pretender(bytes);
    RabbitMqInterSoc queue;
    queue.enable({.port = pretender.port});
    EXPECT_FALSE(queue.publish("q", "m"));
    for (int i = 0; i < 1000; ++i)
      EXPECT_FALSE(queue.publish("q", "m"));
    EXPECT_LE(pretender.connections, 2) << "backs off";
  }
}

// Debian's broker with everything of its own: name, ports, data, port mapper.
class broker_t {
public:
  broker_t()
  {
    char name[] = "/tmp/broker.XXXXXX";
    folder_ = mkdtemp(name);
    std::filesystem::permissions(folder_, std::filesystem::perms::all);
    std::ofstream(folder_ + "/rabbitmq.conf") << "listeners.tcp.1 = 127.0.0.1:" << port << "\n";
    std::ofstream(folder_ + "/plugins") << "[].\n";
    const std::string node = "test" + std::to_string(getpid()) + "@localhost";
    environment_ = "HOME=" + folder_ + " RABBITMQ_NODENAME=" + node + " RABBITMQ_MNESIA_BASE=" + folder_ +
                   " RABBITMQ_LOG_BASE=" + folder_ + " RABBITMQ_CONFIG_FILE=" + folder_ + "/rabbitmq.conf" +
                   " RABBITMQ_ENABLED_PLUGINS_FILE=" + folder_ +
                   "/plugins RABBITMQ_DIST_PORT=" + std::to_string(freePort()) +
                   " ERL_EPMD_PORT=" + std::to_string(freePort()) +
                   " ERL_EPMD_ADDRESS=127.0.0.1 RABBITMQ_USE_LONGNAME=false" + " RABBITMQ_PID_FILE=" + folder_ + "/pid";
    start();
  }
  ~broker_t()
  {
    stop();
    (void)!system((environment_ + " epmd -kill >/dev/null 2>&1").c_str());
    std::filesystem::remove_all(folder_);
  }
  // The scripts of the package insist on another user; the broker itself does not.
  void start()
  {
    (void)!system((environment_ + " " + programs + "/rabbitmq-server -detached >/dev/null 2>&1").c_str());
  }
  void stop() { (void)!system((environment_ + " " + programs + "/rabbitmqctl shutdown >/dev/null 2>&1").c_str()); }
  std::string log() const
  {
    std::string all;
    for (const auto& entry : std::filesystem::directory_iterator(folder_))
      if (entry.path().extension() == ".log")
        all += std::string(std::istreambuf_iterator<char>(std::ifstream(entry.path()).rdbuf()), {});
    return all;
  }

  static constexpr char programs[] = "/usr/lib/rabbitmq/bin";
  const int port = freePort();

private:
  std::string folder_;
  std::string environment_;
};

bool publishedWithin(RabbitMqInterSoc& queue, std::chrono::seconds patience, const std::string& message)
{
  for (const auto deadline = steady_t::now() + patience; steady_t::now() < deadline;) {
    if (queue.publish("inter-soc", message))
      return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  return false;
}

TEST(MessageQueue, ARealBrokerKeepsMessagesInOrderAndAcrossItsRestart)
{
  if (!std::filesystem::exists(std::string(broker_t::programs) + "/rabbitmq-server"))
    GTEST_SKIP() << "rabbitmq-server is not installed";
  broker_t broker;
  RabbitMqInterSoc sender, receiver;
  sender.enable({.port = broker.port});
  const std::string binary("\0\xff message", 10);
  ASSERT_TRUE(publishedWithin(sender, std::chrono::seconds(60), binary)) << broker.log();
  const std::string large(RabbitMqInterSoc::largestMessage, 'l');
  EXPECT_TRUE(sender.publish("inter-soc", large));
  EXPECT_TRUE(sender.publish("inter-soc", ""));
  EXPECT_TRUE(sender.publish("other", "elsewhere"));

  receiver.enable({.port = broker.port});
  std::string message;
  for (const std::string& expected : {binary, large, std::string()}) {
    ASSERT_TRUE(receiver.consume("inter-soc", message, 5000));
    EXPECT_EQ(message, expected);
  }
  EXPECT_FALSE(receiver.consume("inter-soc", message, 100)) << "a queue is empty when it is";
  std::thread late([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_TRUE(sender.publish("inter-soc", "late"));
  });
  EXPECT_TRUE(receiver.consume("inter-soc", message, 5000));
  late.join();
  EXPECT_EQ(message, "late");

  broker.stop();
  EXPECT_FALSE(sender.publish("inter-soc", "lost"));
  broker.start();
  EXPECT_TRUE(publishedWithin(sender, std::chrono::seconds(60), "again")) << broker.log();
  for (const auto deadline = steady_t::now() + std::chrono::seconds(60); steady_t::now() < deadline;)
    if (receiver.consume("other", message, 1000))
      break;
  EXPECT_EQ(message, "elsewhere") << "kept over the restart";

  sender.disable();
  EXPECT_FALSE(sender.publish("inter-soc", "off"));
}

}  // namespace
