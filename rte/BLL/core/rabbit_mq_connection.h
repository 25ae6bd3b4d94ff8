// One connection to an AMQP 0-9-1 broker, with its one channel. Not installed.
#pragma once

#include "rte/BLL/core/rabbit_mq_inter_soc.h"
#include <amqp.h>
#include <chrono>
#include <set>
#include <string>

// Used under the lock of its owner. Connects by itself when asked for something.
class RabbitMqConnection {
public:
  explicit RabbitMqConnection(rabbitMqSettings_t settings) : settings_(std::move(settings)) {}
  ~RabbitMqConnection() { close(); }
  RabbitMqConnection(const RabbitMqConnection&) = delete;
  RabbitMqConnection& operator=(const RabbitMqConnection&) = delete;

  bool publish(const std::string& queue, const std::string& message);

  enum class got_t { message, nothing, failure };
  got_t get(const std::string& queue, std::string& message);

private:
  using clock_t = std::chrono::steady_clock;

  bool isReady(const std::string& queue);
  bool open();
  bool handshake();
  bool declare(const std::string& queue);
  bool isConfirmed();
  bool receive(std::string& message);
  bool failed();
  void close();

  const rabbitMqSettings_t settings_;
  amqp_connection_state_t state_ = nullptr;
  std::set<std::string> declared_;  // on this connection
  std::chrono::milliseconds backOff_{0};
  clock_t::time_point nextAttempt_{};
};
