#include "rte/BLL/core/rabbit_mq_connection.h"

#include <algorithm>
#include <amqp_framing.h>
#include <amqp_tcp_socket.h>

namespace {

constexpr amqp_channel_t channel = 1;
constexpr int frameSize = 128 * 1024;
constexpr uint8_t persistent = 2;
constexpr std::chrono::milliseconds firstBackOff(500);
constexpr std::chrono::milliseconds longestBackOff(30'000);
constexpr timeval longestWait = {2, 0};  // for each answer of the broker

amqp_bytes_t bytesOf(const std::string& text)
{
  return {text.size(), const_cast<char*>(text.data())};
}

bool isNormal(const amqp_rpc_reply_t& reply)
{
  return reply.reply_type == AMQP_RESPONSE_NORMAL;
}

}  // namespace

bool RabbitMqConnection::publish(const std::string& queue, const std::string& message)
{
  if (!isReady(queue))
    return false;
  amqp_basic_properties_t properties = {};
  properties._flags = AMQP_BASIC_DELIVERY_MODE_FLAG;
  properties.delivery_mode = persistent;
  const int status =
      amqp_basic_publish(state_, channel, amqp_empty_bytes, bytesOf(queue), 0, 0, &properties, bytesOf(message));
  return (status == AMQP_STATUS_OK && isConfirmed()) || failed();
}

RabbitMqConnection::got_t RabbitMqConnection::get(const std::string& queue, std::string& message)
{
  if (!isReady(queue))
    return got_t::failure;
  amqp_maybe_release_buffers(state_);
  const amqp_rpc_reply_t reply = amqp_basic_get(state_, channel, bytesOf(queue), 0);
  if (isNormal(reply) && reply.reply.id == AMQP_BASIC_GET_EMPTY_METHOD)
    return got_t::nothing;
  if (isNormal(reply) && reply.reply.id == AMQP_BASIC_GET_OK_METHOD) {
    const uint64_t tag = static_cast<const amqp_basic_get_ok_t*>(reply.reply.decoded)->delivery_tag;
    if (receive(message) && amqp_basic_ack(state_, channel, tag, 0) == AMQP_STATUS_OK)
      return got_t::message;
  }
  failed();
  return got_t::failure;
}

// Connected, if the back-off allows, and the queue is there.
bool RabbitMqConnection::isReady(const std::string& queue)
{
  if (!state_ && clock_t::now() < nextAttempt_)
    return false;
  if (!state_ && !open())
    return failed();
  if (!declared_.contains(queue) && !declare(queue))
    return failed();
  backOff_ = {};
  return true;
}

bool RabbitMqConnection::open()
{
  state_ = amqp_new_connection();
  amqp_socket_t* const socket = state_ ? amqp_tcp_socket_new(state_) : nullptr;
  timeval wait = longestWait;
  return socket && amqp_socket_open_noblock(socket, settings_.host.c_str(), settings_.port, &wait) == AMQP_STATUS_OK &&
         handshake();
}

bool RabbitMqConnection::handshake()
{
  const timeval wait = longestWait;
  amqp_set_handshake_timeout(state_, &wait);
  amqp_set_rpc_timeout(state_, &wait);
  if (!isNormal(amqp_login(state_, settings_.virtualHost.c_str(), 0, frameSize, 0, AMQP_SASL_METHOD_PLAIN,
                           settings_.user.c_str(), settings_.password.c_str())))
    return false;
  amqp_channel_open(state_, channel);
  if (!isNormal(amqp_get_rpc_reply(state_)))
    return false;
  amqp_confirm_select(state_, channel);
  return isNormal(amqp_get_rpc_reply(state_));
}

bool RabbitMqConnection::declare(const std::string& queue)
{
  amqp_queue_declare(state_, channel, bytesOf(queue), 0, 1, 0, 0, amqp_empty_table);
  if (!isNormal(amqp_get_rpc_reply(state_)))
    return false;
  declared_.insert(queue);
  return true;
}

// The broker has taken the message over.
bool RabbitMqConnection::isConfirmed()
{
  timeval wait = longestWait;
  amqp_frame_t frame;
  while (amqp_simple_wait_frame_noblock(state_, &frame, &wait) == AMQP_STATUS_OK)
    if (frame.frame_type == AMQP_FRAME_METHOD)
      return frame.channel == channel && frame.payload.method.id == AMQP_BASIC_ACK_METHOD;
  return false;
}

// The content that follows a get. Frame by frame, so that neither a slow broker nor a huge claim costs more than
// bounded.
bool RabbitMqConnection::receive(std::string& message)
{
  timeval wait = longestWait;
  amqp_frame_t frame;
  if (amqp_simple_wait_frame_noblock(state_, &frame, &wait) != AMQP_STATUS_OK ||
      frame.frame_type != AMQP_FRAME_HEADER || frame.payload.properties.body_size > RabbitMqInterSoc::largestMessage)
    return false;
  const size_t size = frame.payload.properties.body_size;
  std::string body;
  while (body.size() < size) {
    wait = longestWait;
    if (amqp_simple_wait_frame_noblock(state_, &frame, &wait) != AMQP_STATUS_OK ||
        frame.frame_type != AMQP_FRAME_BODY || frame.payload.body_fragment.len > size - body.size())
      return false;
    body.append(static_cast<const char*>(frame.payload.body_fragment.bytes), frame.payload.body_fragment.len);
  }
  message = std::move(body);
  return true;
}

// Ends the connection and puts the next attempt off; false, for the caller to pass on.
bool RabbitMqConnection::failed()
{
  close();
  backOff_ = backOff_.count() == 0 ? firstBackOff : std::min(2 * backOff_, longestBackOff);
  nextAttempt_ = clock_t::now() + backOff_;
  return false;
}

// Without the closing exchange: a broker that hangs must not hold its caller up.
void RabbitMqConnection::close()
{
  if (state_)
    amqp_destroy_connection(state_);
  state_ = nullptr;
  declared_.clear();
}
