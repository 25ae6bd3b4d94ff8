#include "rte/BLL/core/rabbit_mq_inter_soc.h"

#include "rte/BLL/core/mq/rabbit_mq_connection.h"
#include <algorithm>
#include <arpa/inet.h>
#include <cxxabi.h>
#include <thread>

namespace {

using steady_t = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Short enough that a reply is not felt to be late, long enough that an idle wait costs the broker little.
constexpr milliseconds firstPause(5);
constexpr milliseconds longestPause(80);

using sideMutex_t = checked<boost::timed_mutex>;
using sideGuard_t = checked_guard<sideMutex_t>;
const boost::chrono::milliseconds longestTurn(RabbitMqInterSoc::longestStep.count());

// Each waits for its turn behind other threads, but not for ever.
bool takeTurn(sideMutex_t& mutex) TSA_TRY_ACQUIRE(true, mutex)
{
  return mutex.try_lock_for(longestTurn);
}

bool isShortText(const std::string& text)
{
  return !text.empty() && text.size() <= 255 && text.find('\0') == std::string::npos;
}

bool isAddress(const std::string& host)
{
  in6_addr address;
  return isShortText(host) &&
         (inet_pton(AF_INET, host.c_str(), &address) == 1 || inet_pton(AF_INET6, host.c_str(), &address) == 1);
}

// Want of memory and the like fail the call alone. The unwinding of a cancelled thread goes on.
template <typename Operation>
bool withoutThrowing(Operation&& operation)
{
  try {
    return operation();
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    return false;
  }
}

}  // namespace

RabbitMqInterSoc::RabbitMqInterSoc() = default;
RabbitMqInterSoc::~RabbitMqInterSoc() = default;

bool RabbitMqInterSoc::enable(const rabbitMqSettings_t& settings)
{
  if (!isAddress(settings.host) || settings.port < 1 || settings.port > 65535 || !isShortText(settings.virtualHost) ||
      !isShortText(settings.user) || !isShortText(settings.password))
    return false;
  return withoutThrowing([&] {
    auto publishing = std::make_unique<RabbitMqConnection>(settings);
    auto consuming = std::make_unique<RabbitMqConnection>(settings);
    {
      const sideGuard_t guard(publisher_.mutex);
      publisher_.connection.swap(publishing);
    }
    const sideGuard_t guard(consumer_.mutex);
    consumer_.connection.swap(consuming);
    return true;
  });
}

void RabbitMqInterSoc::disable()
{
  withoutThrowing([&] {
    for (side_t* const side : {&publisher_, &consumer_}) {
      const sideGuard_t guard(side->mutex);
      side->connection.reset();
    }
    return true;
  });
}

bool RabbitMqInterSoc::publish(const std::string& queue, const std::string& message)
{
  if (!isShortText(queue) || message.size() > largestMessage)
    return false;
  return withoutThrowing([&] {
    if (!takeTurn(publisher_.mutex))
      return false;
    const sideGuard_t turn(publisher_.mutex, std::adopt_lock);
    return publisher_.connection && publisher_.connection->publish(queue, message);
  });
}

// One look at the queue. `again` tells whether waiting for another look makes sense.
bool RabbitMqInterSoc::tryConsume(const std::string& queue, std::string& message, bool& again)
{
  using got_t = RabbitMqConnection::got_t;
  again = false;
  if (!takeTurn(consumer_.mutex))
    return false;
  const sideGuard_t turn(consumer_.mutex, std::adopt_lock);
  const got_t got = consumer_.connection ? consumer_.connection->get(queue, message) : got_t::failure;
  again = got == got_t::nothing;
  return got == got_t::message;
}

bool RabbitMqInterSoc::consume(const std::string& queue, std::string& message, int timeout_ms)
{
  if (!isShortText(queue))
    return false;
  return withoutThrowing([&] {
    const auto deadline = steady_t::now() + milliseconds(std::max(timeout_ms, 0));
    milliseconds pause = firstPause;
    for (bool again = false;;) {
      if (tryConsume(queue, message, again))
        return true;
      const auto left = std::chrono::ceil<milliseconds>(deadline - steady_t::now());
      if (!again || left.count() <= 0)
        return false;
      std::this_thread::sleep_for(std::min(pause, left));
      pause = std::min(2 * pause, longestPause);
    }
  });
}
