#include "rte/BLL/core/rabbit_mq_inter_soc.h"

#include "rte/BLL/core/rabbit_mq_connection.h"
#include <chrono>
#include <thread>

namespace {

bool isQueueName(const std::string& queue)
{
  return !queue.empty() && queue.size() <= RabbitMqInterSoc::longestQueueName;
}

}  // namespace

RabbitMqInterSoc::RabbitMqInterSoc() = default;
RabbitMqInterSoc::~RabbitMqInterSoc() = default;

void RabbitMqInterSoc::enable(const rabbitMqSettings_t& settings)
{
  for (side_t* const side : {&publisher_, &consumer_}) {
    auto connection = std::make_unique<RabbitMqConnection>(settings);
    const std::lock_guard guard(side->mutex);
    side->connection.swap(connection);
  }
}

void RabbitMqInterSoc::disable()
{
  for (side_t* const side : {&publisher_, &consumer_}) {
    const std::lock_guard guard(side->mutex);
    side->connection.reset();
  }
}

bool RabbitMqInterSoc::publish(const std::string& queue, const std::string& message)
{
  if (!isQueueName(queue) || message.size() > largestMessage)
    return false;
  const std::lock_guard guard(publisher_.mutex);
  return publisher_.connection && publisher_.connection->publish(queue, message);
}

bool RabbitMqInterSoc::consume(const std::string& queue, std::string& message, int timeout_ms)
{
  using steady_t = std::chrono::steady_clock;
  constexpr auto betweenLooks = std::chrono::milliseconds(20);
  if (!isQueueName(queue))
    return false;
  const auto deadline = steady_t::now() + std::chrono::milliseconds(timeout_ms);
  for (;;) {
    {
      const std::lock_guard guard(consumer_.mutex);
      if (!consumer_.connection)
        return false;
      using got_t = RabbitMqConnection::got_t;
      if (const got_t got = consumer_.connection->get(queue, message); got != got_t::nothing)
        return got == got_t::message;
    }
    if (steady_t::now() + betweenLooks > deadline)
      return false;
    std::this_thread::sleep_for(betweenLooks);
  }
}
