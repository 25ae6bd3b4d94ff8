// The queues of the node's message broker, spoken to in AMQP 0-9-1.
//
// Off until enable(): constructing an object touches no network, no file and starts no thread. Once on, the connections
// (one for publishing, one for consuming) are made when they are first used, and made again when they are found dead.
//
// A broker that cannot be reached, that hangs or that talks nonsense costs a caller at most `longestStep` for the work
// itself and as much again for its turn behind other threads. Then the connection is given up, and until the back-off
// interval has passed, calls fail at once. The interval doubles with each failure, from half a second to half a minute.
// What the broker refuses in an orderly way (a reserved queue name, say) fails that call alone.
#ifndef RTE_BLL_CORE_RABBIT_MQ_INTER_SOC_H
#define RTE_BLL_CORE_RABBIT_MQ_INTER_SOC_H

#include "base/thread_annotations.h"
#include "rte/BLL/core/inter_soc_mq.h"
#include <boost/thread/mutex.hpp>
#include <chrono>
#include <memory>

class RabbitMqConnection;

// Where the broker is and who asks.
struct rabbitMqSettings_t {
  std::string host = "127.0.0.1";  // an IPv4 or IPv6 address; names are refused, since looking one up has no time limit
  int port = 5672;
  std::string virtualHost = "/";  // this and the next two: at most 255 bytes each
  std::string user = "guest";
  std::string password = "guest";
};

class RabbitMqInterSoc : public InterSocMq {
public:
  static constexpr size_t longestQueueName = 255;        // bytes, what AMQP allows; none may be NUL
  static constexpr size_t largestMessage = 1024 * 1024;  // bytes; longer ones are refused
  static constexpr std::chrono::milliseconds longestStep{3000};

  RabbitMqInterSoc();
  ~RabbitMqInterSoc() override;

  // From now on calls go to this broker; what was connected before is closed. False, and all as it was, if the
  // settings cannot be right. Does not connect yet.
  bool enable(const rabbitMqSettings_t& settings);
  // From now on calls fail; closes the connections.
  void disable();

  // The queue is durable; the message is kept across a restart of the broker. Takes at most two steps.
  bool publish(const std::string& queue, const std::string& message) override;
  // A message is taken off the queue when it has been received here whole. One that is too large for this end is taken
  // off and dropped, with a warning in the log, so that it does not block those behind it. Takes at most `timeout_ms`
  // and two steps.
  bool consume(const std::string& queue, std::string& message, int timeout_ms) override;

private:
  // Two, so that a slow consumer delays no publisher.
  struct side_t {
    checked<boost::timed_mutex> mutex;  // held while the connection works, never while a consumer waits
    std::unique_ptr<RabbitMqConnection> connection TSA_GUARDED_BY(mutex) TSA_PT_GUARDED_BY(mutex);  // null while off
  };
  bool tryConsume(const std::string& queue, std::string& message, bool& again);

  side_t publisher_;
  side_t consumer_;
};

#endif
