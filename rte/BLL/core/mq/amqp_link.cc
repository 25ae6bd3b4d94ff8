#include "rte/BLL/core/mq/amqp_link.h"

#include <algorithm>
#include <amqp_framing.h>
#include <amqp_tcp_socket.h>
#include <cerrno>
#include <poll.h>
#include <sys/socket.h>

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr uint32_t frameFraming = 8;  // type, channel, size and end mark
// The kernel doubles it. It calls the socket writable while a third is free, which is several of the largest frames:
// what is sent after asking is taken whole, and never leaves the library waiting for room.
constexpr int sendBuffer = 64 * 1024;

timeval untilDeadline(AmqpLink::deadline_t deadline)
{
  const auto left = std::chrono::duration_cast<microseconds>(deadline - steady_clock::now());
  const auto count = std::max<microseconds::rep>(left.count(), 0);
  return {static_cast<time_t>(count / 1'000'000), static_cast<suseconds_t>(count % 1'000'000)};
}

}  // namespace

bool AmqpLink::open(const std::string& address, int port, deadline_t deadline)
{
  close();
  state_ = amqp_new_connection();
  amqp_socket_t* const socket = state_ ? amqp_tcp_socket_new(state_) : nullptr;
  timeval wait = untilDeadline(deadline);
  if (!socket || amqp_socket_open_noblock(socket, address.c_str(), port, &wait) != AMQP_STATUS_OK)
    return false;
  socket_ = amqp_get_sockfd(state_);
  return setsockopt(socket_, SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer) == 0 &&
         waitFor(POLLOUT, deadline) && amqp_send_header(state_) == AMQP_STATUS_OK;
}

void AmqpLink::close()
{
  if (state_)
    amqp_destroy_connection(state_);
  state_ = nullptr;
  socket_ = -1;
  frameSize_ = smallestFrame;
  inputBegin_ = inputEnd_ = 0;
}

bool AmqpLink::isOpenAndQuiet() const
{
  pollfd look = {socket_, POLLIN, 0};
  return state_ && inputBegin_ == inputEnd_ && poll(&look, 1, 0) == 0;
}

bool AmqpLink::setFrameSize(uint32_t offered)
{
  frameSize_ = offered == 0 ? largestFrame : std::min(offered, largestFrame);
  return frameSize_ >= smallestFrame &&
         amqp_tune_connection(state_, 1, static_cast<int>(frameSize_), 0) == AMQP_STATUS_OK;
}

// Also false when the deadline has passed although the socket is ready, so that a stream without end has one here.
bool AmqpLink::waitFor(short events, deadline_t deadline) const
{
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
    if (left.count() <= 0)
      return false;
    pollfd wait = {socket_, events, 0};
    const int ready = poll(&wait, 1, static_cast<int>(std::min<milliseconds::rep>(left.count(), 60'000)));
    if (ready > 0)
      return (wait.revents & events) != 0;
    if (ready < 0 && errno != EINTR)
      return false;
  }
}

bool AmqpLink::send(amqp_channel_t channel, amqp_method_number_t id, void* method, deadline_t deadline)
{
  return waitFor(POLLOUT, deadline) && amqp_send_method(state_, channel, id, method) == AMQP_STATUS_OK;
}

bool AmqpLink::sendFrame(const amqp_frame_t& frame, deadline_t deadline)
{
  return waitFor(POLLOUT, deadline) && amqp_send_frame(state_, &frame) == AMQP_STATUS_OK;
}

bool AmqpLink::sendContent(amqp_channel_t channel, amqp_basic_properties_t& properties, const std::string& body,
                           deadline_t deadline)
{
  amqp_frame_t header = {};
  header.frame_type = AMQP_FRAME_HEADER;
  header.channel = channel;
  header.payload.properties.class_id = AMQP_BASIC_CLASS;
  header.payload.properties.body_size = body.size();
  header.payload.properties.decoded = &properties;
  if (!sendFrame(header, deadline))
    return false;
  const size_t largestPiece = frameSize_ - frameFraming;
  for (size_t at = 0; at < body.size(); at += largestPiece) {
    amqp_frame_t piece = {};
    piece.frame_type = AMQP_FRAME_BODY;
    piece.channel = channel;
    piece.payload.body_fragment.len = std::min(largestPiece, body.size() - at);
    piece.payload.body_fragment.bytes = const_cast<char*>(body.data() + at);
    if (!sendFrame(piece, deadline))
      return false;
  }
  return true;
}

bool AmqpLink::receive(amqp_channel_t channel, amqp_frame_t& frame, deadline_t deadline)
{
  amqp_maybe_release_buffers(state_);  // the frame of the call before
  for (;;) {
    if (inputBegin_ == inputEnd_ && !fill(deadline))
      return false;
    const int used = amqp_handle_input(state_, {inputEnd_ - inputBegin_, input_.data() + inputBegin_}, &frame);
    if (used <= 0)
      return false;
    inputBegin_ += static_cast<size_t>(used);
    if (frame.frame_type == AMQP_FRAME_HEARTBEAT)
      amqp_maybe_release_buffers(state_);
    else if (frame.frame_type != 0)
      return frame.channel == channel || frame.channel == 0;
  }
}

bool AmqpLink::fill(deadline_t deadline)
{
  for (;;) {
    if (!waitFor(POLLIN, deadline))
      return false;
    const ssize_t got = recv(socket_, input_.data(), input_.size(), MSG_DONTWAIT);
    if (got > 0) {
      inputBegin_ = 0;
      inputEnd_ = static_cast<size_t>(got);
      return true;
    }
    if (got == 0 || (errno != EAGAIN && errno != EINTR))
      return false;
  }
}
