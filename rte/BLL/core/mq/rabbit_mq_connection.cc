#include "rte/BLL/core/mq/rabbit_mq_connection.h"

#include "rte/BLL/core/log/log_line.h"
#include <algorithm>
#include <amqp_framing.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr amqp_channel_t connectionChannel = 0;
constexpr amqp_channel_t channel = 1;
constexpr uint8_t persistent = 2;
constexpr size_t mostDeclared = 256;
constexpr milliseconds firstBackOff(500);
constexpr milliseconds longestBackOff(30'000);

amqp_bytes_t bytesOf(const std::string& text)
{
  return {text.size(), const_cast<char*>(text.data())};
}

bool isMethod(const amqp_frame_t& frame, amqp_method_number_t id)
{
  return frame.frame_type == AMQP_FRAME_METHOD && frame.payload.method.id == id;
}

}  // namespace

// However a call ends, by an exception too: unless the connection has been found good, it is closed and the next
// attempt put off. Half an exchange must not be taken for the answer to the next one.
class RabbitMqConnection::attempt_t {
public:
  explicit attempt_t(RabbitMqConnection& connection) : connection_(connection)
  {
    connection_.deadline_ = steady_clock::now() + RabbitMqInterSoc::longestStep;
  }
  ~attempt_t()
  {
    if (!good_)
      connection_.putOff();
  }
  attempt_t(const attempt_t&) = delete;
  attempt_t& operator=(const attempt_t&) = delete;
  void setGood() { good_ = true; }

private:
  RabbitMqConnection& connection_;
  bool good_ = false;
};

bool RabbitMqConnection::publish(const std::string& queue, const std::string& message)
{
  return run(queue, [&] { return send(queue, message); }) == outcome_t::done;
}

RabbitMqConnection::got_t RabbitMqConnection::get(const std::string& queue, std::string& message)
{
  const outcome_t outcome = run(queue, [&] { return take(queue, message); });
  if (outcome == outcome_t::done)
    return got_t::message;
  return outcome == outcome_t::nothing ? got_t::nothing : got_t::failure;
}

// An exchange about a queue, on a connection that is made before if the back-off allows.
template <typename Exchange>
RabbitMqConnection::outcome_t RabbitMqConnection::run(const std::string& queue, Exchange&& exchange)
{
  const bool connected = link_.isOpenAndQuiet();
  if (!connected && steady_clock::now() < nextAttempt_)
    return outcome_t::broken;
  const bool outage = backOff_.count() != 0;
  outcome_t outcome = outcome_t::broken;
  {
    attempt_t attempt(*this);
    if (connected || connect())
      outcome = onQueue(queue, exchange);
    if (outcome != outcome_t::broken) {
      attempt.setGood();
      backOff_ = {};
    }
  }
  if (outage != (backOff_.count() != 0))
    reportOutage();
  return outcome;
}

// A queue that was there may have been deleted since. A refusal is believed only of a queue just declared.
template <typename Exchange>
RabbitMqConnection::outcome_t RabbitMqConnection::onQueue(const std::string& queue, Exchange&& exchange)
{
  if (declared_.contains(queue)) {
    if (const outcome_t outcome = exchange(); outcome != outcome_t::refused)
      return outcome;
    declared_.erase(queue);
  }
  const outcome_t outcome = declare(queue);
  return outcome == outcome_t::done ? exchange() : outcome;
}

bool RabbitMqConnection::connect()
{
  declared_.clear();
  doing_ = "connecting";
  if (!link_.open(settings_.host, settings_.port, deadline_))
    return false;
  doing_ = "logging in";
  return login() && openChannel();
}

bool RabbitMqConnection::login()
{
  amqp_frame_t frame;
  if (!receive(connectionChannel, AMQP_CONNECTION_START_METHOD, frame))
    return false;
  const std::string response = '\0' + settings_.user + '\0' + settings_.password;  // RFC 4616
  amqp_connection_start_ok_t startOk = {amqp_empty_table, amqp_cstring_bytes("PLAIN"), bytesOf(response),
                                        amqp_cstring_bytes("en_US")};
  if (!link_.send(connectionChannel, AMQP_CONNECTION_START_OK_METHOD, &startOk, deadline_) ||
      !receive(connectionChannel, AMQP_CONNECTION_TUNE_METHOD, frame) ||
      !link_.setFrameSize(static_cast<const amqp_connection_tune_t*>(frame.payload.method.decoded)->frame_max))
    return false;
  // No heartbeats: whether the broker is alive matters, and shows, when it is asked for something.
  amqp_connection_tune_ok_t tuneOk = {channel, link_.frameSize(), 0};
  amqp_connection_open_t open = {bytesOf(settings_.virtualHost), amqp_empty_bytes, 0};
  return link_.send(connectionChannel, AMQP_CONNECTION_TUNE_OK_METHOD, &tuneOk, deadline_) &&
         link_.send(connectionChannel, AMQP_CONNECTION_OPEN_METHOD, &open, deadline_) &&
         receive(connectionChannel, AMQP_CONNECTION_OPEN_OK_METHOD, frame);
}

bool RabbitMqConnection::openChannel()
{
  amqp_frame_t frame;
  amqp_channel_open_t open = {amqp_empty_bytes};
  amqp_confirm_select_t confirm = {0};
  return request(AMQP_CHANNEL_OPEN_METHOD, &open) && receive(channel, AMQP_CHANNEL_OPEN_OK_METHOD, frame) &&
         request(AMQP_CONFIRM_SELECT_METHOD, &confirm) && receive(channel, AMQP_CONFIRM_SELECT_OK_METHOD, frame);
}

RabbitMqConnection::outcome_t RabbitMqConnection::declare(const std::string& queue)
{
  doing_ = "declaring a queue";
  amqp_queue_declare_t durable = {0, bytesOf(queue), 0, 1, 0, 0, 0, amqp_empty_table};
  amqp_frame_t frame;
  if (!request(AMQP_QUEUE_DECLARE_METHOD, &durable) || !receive(frame))
    return outcome_t::broken;
  if (!isMethod(frame, AMQP_QUEUE_DECLARE_OK_METHOD))
    return unexpected(frame);
  if (declared_.size() == mostDeclared)
    declared_.clear();  // declaring once more than needed is harmless
  declared_.insert(queue);
  return outcome_t::done;
}

RabbitMqConnection::outcome_t RabbitMqConnection::send(const std::string& queue, const std::string& message)
{
  doing_ = "publishing";
  // Mandatory: a broker confirms a message for a queue that is gone too, but returns it first.
  amqp_basic_publish_t publish = {0, amqp_empty_bytes, bytesOf(queue), 1, 0};
  amqp_basic_properties_t properties = {};
  properties._flags = AMQP_BASIC_DELIVERY_MODE_FLAG;
  properties.delivery_mode = persistent;
  if (!request(AMQP_BASIC_PUBLISH_METHOD, &publish) || !link_.sendContent(channel, properties, message, deadline_))
    return outcome_t::broken;
  return isConfirmed();
}

// The broker has taken the one message that is under way over.
RabbitMqConnection::outcome_t RabbitMqConnection::isConfirmed()
{
  bool returned = false;
  amqp_frame_t frame;
  while (receive(frame)) {
    if (isMethod(frame, AMQP_BASIC_ACK_METHOD))
      return returned ? outcome_t::refused : outcome_t::done;
    if (isMethod(frame, AMQP_BASIC_NACK_METHOD))
      return outcome_t::refused;
    const bool isContent = frame.frame_type != AMQP_FRAME_METHOD;
    if (isMethod(frame, AMQP_BASIC_RETURN_METHOD))
      returned = true;
    else if (!returned || !isContent)
      return unexpected(frame);
  }
  return outcome_t::broken;
}

RabbitMqConnection::outcome_t RabbitMqConnection::take(const std::string& queue, std::string& message)
{
  doing_ = "getting a message";
  amqp_basic_get_t get = {0, bytesOf(queue), 0};
  amqp_frame_t frame;
  if (!request(AMQP_BASIC_GET_METHOD, &get) || !receive(frame))
    return outcome_t::broken;
  if (isMethod(frame, AMQP_BASIC_GET_EMPTY_METHOD))
    return outcome_t::nothing;
  if (!isMethod(frame, AMQP_BASIC_GET_OK_METHOD))
    return unexpected(frame);
  amqp_basic_ack_t ack = {static_cast<const amqp_basic_get_ok_t*>(frame.payload.method.decoded)->delivery_tag, 0};
  std::string body;
  bool fits = false;
  if (!receiveContent(body, fits))
    return outcome_t::broken;
  if (!fits)
    return drop(ack.delivery_tag, queue) ? outcome_t::nothing : outcome_t::broken;
  if (!request(AMQP_BASIC_ACK_METHOD, &ack))
    return outcome_t::broken;
  message = std::move(body);
  return outcome_t::done;
}

// The header and body that follow a get. What does not fit is read to its end, or to the deadline, and not kept.
bool RabbitMqConnection::receiveContent(std::string& body, bool& fits)
{
  amqp_frame_t frame;
  if (!receive(frame) || frame.frame_type != AMQP_FRAME_HEADER)
    return false;
  uint64_t left = frame.payload.properties.body_size;
  fits = left <= RabbitMqInterSoc::largestMessage;
  while (left > 0) {
    if (!receive(frame) || frame.frame_type != AMQP_FRAME_BODY || frame.payload.body_fragment.len > left)
      return false;
    left -= frame.payload.body_fragment.len;
    if (fits)
      body.append(static_cast<const char*>(frame.payload.body_fragment.bytes), frame.payload.body_fragment.len);
  }
  return true;
}

// Takes a message that is too large off the queue: it would come again and again, and nothing behind it ever.
bool RabbitMqConnection::drop(uint64_t tag, const std::string& queue)
{
  logAt(LogImpl::warning) << "Message queue " << queue << ": a message of more than "
                          << static_cast<int>(RabbitMqInterSoc::largestMessage) << " bytes was dropped.\n";
  amqp_basic_reject_t reject = {tag, 0};
  return request(AMQP_BASIC_REJECT_METHOD, &reject);
}

bool RabbitMqConnection::request(amqp_method_number_t id, void* method)
{
  return link_.send(channel, id, method, deadline_);
}

bool RabbitMqConnection::receive(amqp_frame_t& frame)
{
  return link_.receive(channel, frame, deadline_);
}

bool RabbitMqConnection::receive(amqp_channel_t from, amqp_method_number_t id, amqp_frame_t& frame)
{
  return receive(frame) && frame.channel == from && isMethod(frame, id);
}

// The broker's way to refuse is to close the channel; with a new one the connection goes on. All else is the end.
RabbitMqConnection::outcome_t RabbitMqConnection::unexpected(const amqp_frame_t& frame)
{
  amqp_channel_close_ok_t closeOk = {};
  const bool refused = frame.channel == channel && isMethod(frame, AMQP_CHANNEL_CLOSE_METHOD);
  return refused && request(AMQP_CHANNEL_CLOSE_OK_METHOD, &closeOk) && openChannel() ? outcome_t::refused
                                                                                     : outcome_t::broken;
}

milliseconds RabbitMqConnection::backOffAfter(milliseconds former)
{
  return former.count() == 0 ? firstBackOff : std::min(2 * former, longestBackOff);
}

void RabbitMqConnection::putOff()
{
  link_.close();
  backOff_ = backOffAfter(backOff_);
  nextAttempt_ = steady_clock::now() + backOff_;
}

// Once when an outage begins and once when it is over, however many calls fail between.
void RabbitMqConnection::reportOutage()
{
  if (backOff_.count() == 0)
    logAt(LogImpl::notice) << "Message broker " << settings_.host << ":" << settings_.port << " answers again.\n";
  else
    logAt(LogImpl::warning) << "Message broker " << settings_.host << ":" << settings_.port << " has failed while "
                            << doing_ << ".\n";
}
