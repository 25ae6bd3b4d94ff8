#include "platform/ippc/client.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace ippc {
namespace {

using clock = std::chrono::steady_clock;

// True when `fd` is ready before the deadline.
bool wait_for(int fd, short events, clock::time_point deadline)
{
  while (true) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - clock::now());
    pollfd wait{fd, events, 0};
    const int rc = poll(&wait, 1, static_cast<int>(std::max<int64_t>(left.count(), 0)));
    if (rc >= 0 || errno != EINTR)
      return rc == 1;
  }
}

}  // namespace

bool client::open(const std::string& path)
{
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return false;
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  fd_.reset(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  return fd_ && connect(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

call_error client::request_send(std::chrono::milliseconds time_out)
{
  const clock::time_point deadline = clock::now() + time_out;
  // There is room for a packet nearly always: asking first would cost a system call a request.
  // A server that has closed the connection may have left word why, so that is no reason not to look.
  while (send(fd_.get(), packet_.data(), packet_.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0 && errno != EPIPE) {
    if (errno != EAGAIN && errno != EINTR)
      return call_error::no_server;
    if (!wait_for(fd_.get(), POLLOUT, deadline))
      return call_error::time_out;
  }
  return call_error::none;
}

// The reply is left in `received_`.
call_error client::reply_receive(std::chrono::milliseconds time_out)
{
  const clock::time_point deadline = clock::now() + time_out;
  received_.resize(packet_max);
  ssize_t size = receive_soon();
  if (size < 0 && errno == EAGAIN) {
    if (!wait_for(fd_.get(), POLLIN, deadline))
      return call_error::time_out;
    size = recv(fd_.get(), received_.data(), received_.size(), 0);
  }
  if (size < 0 && errno == ECONNRESET)  // closed with the request unread; what came before is behind the error
    size = recv(fd_.get(), received_.data(), received_.size(), MSG_DONTWAIT);
  if (size <= 0)
    return call_error::no_server;
  reply_size_ = static_cast<size_t>(size);
  return call_error::none;
}

call_error client::exchange(std::chrono::milliseconds time_out)
{
  const call_error error = request_send(time_out);
  return error == call_error::none ? reply_receive(time_out) : error;
}

// Most replies come within microseconds: a core that goes to sleep for one takes longer to wake up than the reply to
// come. So this looks for a moment, and lets others run meanwhile. As recv, with errno EAGAIN when nothing came.
ssize_t client::receive_soon()
{
  constexpr auto moment = std::chrono::microseconds(50);
  const clock::time_point end = clock::now() + moment;
  while (true) {
    const ssize_t size = recv(fd_.get(), received_.data(), received_.size(), MSG_DONTWAIT);
    if (size >= 0 || errno != EAGAIN || clock::now() >= end)
      return size;
    sched_yield();
  }
}

void client::request_make(uint16_t function_id, const std::vector<std::vector<unsigned char>>& arguments)
{
  const std::vector<const_bytes> views(arguments.begin(), arguments.end());
  packet_.clear();
  request_encode(function_id, ++sequence_, views, packet_);
}

// Reads what is in `received_`.
call_reply client::reply_take(uint16_t function_id, uint32_t sequence,
                              std::vector<std::vector<unsigned char>>& arguments)
{
  const std::optional<reply> reply = reply_decode({received_.data(), reply_size_});
  if (reply && reply->status == status_busy)
    return {.error = call_error::busy};
  if (!reply || reply->sequence != sequence || reply->function_id != function_id)
    return {.error = call_error::protocol};
  for (size_t i = 0; i < std::min(arguments.size(), reply->arguments.size()); ++i)
    arguments[i].assign(reply->arguments[i].begin(), reply->arguments[i].end());
  return {call_error::none, reply->status, reply->has_result, reply->result};
}

call_reply client::call(uint16_t function_id, std::vector<std::vector<unsigned char>>& arguments,
                        std::chrono::milliseconds time_out)
{
  request_make(function_id, arguments);
  if (const call_error error = exchange(time_out); error != call_error::none)
    return {.error = error};
  return reply_take(function_id, sequence_, arguments);
}

// One system call for all: the server is woken when they are there, and not for each.
call_error client::requests_send(std::span<const pending_call> calls, std::chrono::milliseconds time_out)
{
  std::vector<std::vector<unsigned char>> packets;
  for (const pending_call& one : calls) {
    request_make(one.function_id, one.arguments);
    packets.push_back(packet_);
  }
  std::vector<iovec> pieces;
  for (std::vector<unsigned char>& packet : packets)
    pieces.push_back({packet.data(), packet.size()});
  std::vector<mmsghdr> messages(pieces.size());
  for (size_t i = 0; i < pieces.size(); ++i) {
    messages[i].msg_hdr.msg_iov = &pieces[i];
    messages[i].msg_hdr.msg_iovlen = 1;
  }
  const clock::time_point deadline = clock::now() + time_out;
  for (size_t sent = 0; sent < messages.size();) {
    const int count = sendmmsg(fd_.get(), &messages[sent], static_cast<unsigned>(messages.size() - sent),
                               MSG_NOSIGNAL | MSG_DONTWAIT);
    sent += count > 0 ? static_cast<size_t>(count) : 0;
    if (count > 0 || errno == EINTR)
      continue;
    if (errno == EPIPE)  // the replies tell why
      break;
    if (errno != EAGAIN)
      return call_error::no_server;
    if (!wait_for(fd_.get(), POLLOUT, deadline))
      return call_error::time_out;
  }
  return call_error::none;
}

call_error client::call_all(std::span<pending_call> calls, size_t together, std::chrono::milliseconds time_out)
{
  call_error error = call_error::none;
  for (size_t begin = 0; begin < calls.size(); begin += together) {
    const std::span<pending_call> some = calls.subspan(begin, std::min(together, calls.size() - begin));
    const uint32_t first = sequence_ + 1;
    if (error == call_error::none)
      error = requests_send(some, time_out);
    for (size_t i = 0; i < some.size(); ++i) {
      if (error == call_error::none)
        error = reply_receive(time_out);
      some[i].reply = {.error = error};
      if (error == call_error::none)
        some[i].reply = reply_take(some[i].function_id, first + static_cast<uint32_t>(i), some[i].arguments);
      error = some[i].reply.error;
    }
  }
  return error;
}

}  // namespace ippc
