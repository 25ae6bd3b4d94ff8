// A connection to an AMQP 0-9-1 broker, with its one channel, and when to try again after it broke.
#ifndef RTE_BLL_CORE_MQ_RABBIT_MQ_CONNECTION_H
#define RTE_BLL_CORE_MQ_RABBIT_MQ_CONNECTION_H

#include "rte/BLL/core/mq/amqp_link.h"
#include "rte/BLL/core/rabbit_mq_inter_soc.h"
#include <set>
#include <string>

// Used under the lock of its owner. Connects by itself when asked for something. Each call ends within
// RabbitMqInterSoc::longestStep. Only want of memory is thrown; the connection is then closed.
class RabbitMqConnection {
public:
  explicit RabbitMqConnection(rabbitMqSettings_t settings) : settings_(std::move(settings)) {}

  // True when the broker has confirmed the message.
  bool publish(const std::string& queue, const std::string& message);

  enum class got_t { message, nothing, failure };
  got_t get(const std::string& queue, std::string& message);

  // How long nothing is tried after a failure, from how long it was after the one before; 0 after a success.
  static std::chrono::milliseconds backOffAfter(std::chrono::milliseconds former);

private:
  // What an exchange with the broker has come to.
  enum class outcome_t {
    done,
    nothing,  // the queue is empty
    refused,  // the broker said no; the connection is as good as before
    broken,   // no answer in time, or none that makes sense: the connection is to be closed
  };
  class attempt_t;

  template <typename Exchange>
  outcome_t run(const std::string& queue, Exchange&& exchange);
  template <typename Exchange>
  outcome_t onQueue(const std::string& queue, Exchange&& exchange);
  bool connect();
  bool login();
  bool openChannel();
  outcome_t declare(const std::string& queue);
  outcome_t send(const std::string& queue, const std::string& message);
  outcome_t isConfirmed();
  outcome_t take(const std::string& queue, std::string& message);
  bool receiveContent(std::string& body, bool& fits);
  bool drop(uint64_t tag, const std::string& queue);

  bool request(amqp_method_number_t id, void* method);
  bool receive(amqp_frame_t& frame);
  bool receive(amqp_channel_t from, amqp_method_number_t id, amqp_frame_t& frame);
  outcome_t unexpected(const amqp_frame_t& frame);
  void putOff();
  void reportOutage();

  const rabbitMqSettings_t settings_;
  AmqpLink link_;
  std::set<std::string> declared_;        // queues known to be there; at most `mostDeclared`
  AmqpLink::deadline_t deadline_{};       // of the call that runs
  const char* doing_ = "";                // for the log
  std::chrono::milliseconds backOff_{0};  // 0 while the last call went well
  AmqpLink::deadline_t nextAttempt_{};
};

#endif
