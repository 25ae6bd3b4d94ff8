// The queues of the node's message broker, spoken to in AMQP 0-9-1.
//
// Off until enable(): constructing an object touches no network, no file and starts no thread. Once on, the connections
// (one for publishing, one for consuming) are made when they are first used. A broker that cannot be reached, that
// hangs or that talks nonsense costs a caller at most a few seconds, once: until the back-off interval has passed,
// calls fail at once. The interval doubles with each failure, from half a second to half a minute.
#pragma once

#include "rte/BLL/core/inter_soc_mq.h"
#include <memory>
#include <mutex>

class RabbitMqConnection;

// Where the broker is and who asks.
struct rabbitMqSettings_t {
  std::string host = "127.0.0.1";
  int port = 5672;
  std::string virtualHost = "/";
  std::string user = "guest";
  std::string password = "guest";
};

class RabbitMqInterSoc : public InterSocMq {
public:
  static constexpr size_t longestQueueName = 255;        // what AMQP allows
  static constexpr size_t largestMessage = 1024 * 1024;  // bytes; longer ones are refused

  RabbitMqInterSoc();
  ~RabbitMqInterSoc() override;

  // From now on calls go to this broker; what was connected before is closed.
  void enable(const rabbitMqSettings_t& settings);
  // From now on calls fail; closes the connections.
  void disable();

  // The queue is durable; the message is kept across a restart of the broker.
  bool publish(const std::string& queue, const std::string& message) override;
  // A message is taken off the queue when it has been received here whole.
  bool consume(const std::string& queue, std::string& message, int timeout_ms) override;

private:
  struct side_t {
    std::mutex mutex;  // held for a whole call, so that a slow consumer delays no publisher
    std::unique_ptr<RabbitMqConnection> connection;  // null while off
  };
  side_t publisher_;
  side_t consumer_;
};
