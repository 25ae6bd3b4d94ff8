// The message queue client against a real broker.
#include "rte/BLL/core/rabbit_mq_inter_soc.h"
#include "tests/framework/rabbit_mq_broker.h"
#include <amqp_framing.h>
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <set>
#include <thread>

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr auto slack = 10s;  // for a busy machine and the sanitizers

class RabbitMq : public testing::Test {
protected:
  static void SetUpTestSuite()
  {
    if (!Broker::installed()) {
      std::cout << "Skipped: rabbitmq-server is not installed, so there is no broker to test against.\n";
      return;
    }
    broker = std::make_unique<Broker>();
    ASSERT_TRUE(broker->start()) << "the broker does not start";
  }
  static void TearDownTestSuite() { broker.reset(); }
  void SetUp() override
  {
    if (!broker)
      GTEST_SKIP();
    settings.port = broker->port();
    ASSERT_TRUE(mq.enable(settings));
  }
  // Takes what is there now.
  std::string next(const std::string& queue, int timeout_ms = 0)
  {
    std::string message = "(none)";
    mq.consume(queue, message, timeout_ms);
    return message;
  }

  static inline std::unique_ptr<Broker> broker;
  rabbitMqSettings_t settings;
  RabbitMqInterSoc mq;
};

TEST_F(RabbitMq, CarriesAnyBytesInOrder)
{
  std::string large(RabbitMqInterSoc::largestMessage, '\0');
  for (size_t i = 0; i < large.size(); ++i)
    large[i] = static_cast<char>(i * 7 + i / 8000);
  const std::string queue(RabbitMqInterSoc::longestQueueName, 'q');
  const std::string messages[] = {"first", "", std::string("\0\xff\xce", 3), large, "last"};
  for (const std::string& message : messages)
    ASSERT_TRUE(mq.publish(queue, message));
  for (const std::string& message : messages)
    EXPECT_TRUE(next(queue) == message);
  EXPECT_FALSE(mq.publish(queue, large + "x"));
  EXPECT_EQ(next(queue), "(none)");
}

TEST_F(RabbitMq, ConsumerWaitsAsLongAsItIsTold)
{
  const auto begin = steady_clock::now();
  EXPECT_EQ(next("quiet", 300), "(none)");
  EXPECT_GE(steady_clock::now() - begin, 300ms);
  EXPECT_LT(steady_clock::now() - begin, 300ms + slack);
}

// Those who wait for them do not delay the publishers.
TEST_F(RabbitMq, EveryMessageOfManyThreadsArrivesOnce)
{
  constexpr size_t threads = 4, each = 50;
  std::vector<std::set<std::string>> got(threads);
  std::vector<std::thread> team;
  for (size_t t = 0; t < threads; ++t) {
    team.emplace_back([&, t] {
      for (size_t i = 0; i < each; ++i)
        got[t].insert(next("many", 20'000));
    });
    team.emplace_back([&, t] {
      for (size_t i = 0; i < each; ++i)
        EXPECT_TRUE(mq.publish("many", std::to_string(t) + ":" + std::to_string(i)));
    });
  }
  for (std::thread& thread : team)
    thread.join();
  std::set<std::string> all;
  for (auto& some : got)
    all.merge(some);
  EXPECT_EQ(all.size(), threads * each);
  EXPECT_FALSE(all.contains("(none)"));
}

// A broker confirms what it throws away for want of a queue: such a confirmation must not count.
TEST_F(RabbitMq, QueueDeletedByOthersIsMadeAgain)
{
  const auto remove = [](amqp_connection_state_t state) {
    return amqp_queue_delete(state, 1, amqp_cstring_bytes("deleted"), 0, 0) != nullptr;
  };
  ASSERT_TRUE(mq.publish("deleted", "lost with its queue"));
  ASSERT_TRUE(withPlainClient(broker->port(), remove));
  EXPECT_TRUE(mq.publish("deleted", "kept"));
  EXPECT_EQ(next("deleted"), "kept");
  ASSERT_TRUE(withPlainClient(broker->port(), remove));
  EXPECT_EQ(next("deleted"), "(none)");
  EXPECT_TRUE(mq.publish("deleted", "kept too"));
  EXPECT_EQ(next("deleted"), "kept too");
}

TEST_F(RabbitMq, RefusalFailsThatCallAlone)
{
  EXPECT_FALSE(mq.publish("amq.reserved", "x"));
  EXPECT_TRUE(mq.publish("usual", "y"));
  EXPECT_FALSE(mq.publish("amq.reserved", "x"));
  EXPECT_EQ(next("amq.reserved"), "(none)");
  EXPECT_EQ(next("usual"), "y");
}

TEST_F(RabbitMq, ForeignMessageTooLargeDoesNotBlockTheQueue)
{
  ASSERT_TRUE(mq.publish("large", "before"));
  const std::string large(RabbitMqInterSoc::largestMessage + 1, 'x');
  ASSERT_TRUE(withPlainClient(broker->port(), [&](amqp_connection_state_t state) {
    return amqp_basic_publish(state, 1, amqp_empty_bytes, amqp_cstring_bytes("large"), 0, 0, nullptr,
                              {large.size(), const_cast<char*>(large.data())}) == AMQP_STATUS_OK;
  }));
  ASSERT_TRUE(mq.publish("large", "after"));
  EXPECT_EQ(next("large"), "before");
  EXPECT_EQ(next("large", 1000), "after");
  EXPECT_EQ(next("large"), "(none)");
}

TEST_F(RabbitMq, WrongPasswordAndDisabledFail)
{
  settings.password = "wrong";
  ASSERT_TRUE(mq.enable(settings));
  const auto begin = steady_clock::now();
  std::thread publisher([&] { EXPECT_FALSE(mq.publish("usual", "x")); });
  EXPECT_EQ(next("usual", 60'000), "(none)");
  publisher.join();
  EXPECT_LT(steady_clock::now() - begin, RabbitMqInterSoc::longestStep + slack);
  settings.password = "guest";
  ASSERT_TRUE(mq.enable(settings));
  EXPECT_TRUE(mq.publish("usual", "x"));
  mq.disable();
  EXPECT_FALSE(mq.publish("usual", "x"));
  EXPECT_EQ(next("usual"), "(none)");
}

TEST_F(RabbitMq, RestartKeepsMessagesAndIsFollowed)
{
  ASSERT_TRUE(mq.publish("kept", "before the restart"));
  EXPECT_EQ(next("empty"), "(none)");
  broker->stop();
  ASSERT_TRUE(broker->start());
  // Both connections are dead by now; the first call notices and connects again.
  EXPECT_TRUE(mq.publish("kept", "after the restart"));
  EXPECT_EQ(next("kept"), "before the restart");
  EXPECT_EQ(next("kept"), "after the restart");
}

}  // namespace
