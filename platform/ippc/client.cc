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

client::~client()
{
  if (fd_ >= 0)
    close(fd_);
}

bool client::open(const std::string& path)
{
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return false;
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  fd_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  return fd_ >= 0 && connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

// Sends `packet_`; the reply is left in `received_`.
call_error client::exchange(std::chrono::milliseconds time_out)
{
  const clock::time_point deadline = clock::now() + time_out;
  // There is room for a packet nearly always: asking first would cost a system call a request.
  // A server that has closed the connection may have left word why, so that is no reason not to look.
  while (send(fd_, packet_.data(), packet_.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0 && errno != EPIPE) {
    if (errno != EAGAIN && errno != EINTR)
      return call_error::no_server;
    if (!wait_for(fd_, POLLOUT, deadline))
      return call_error::time_out;
  }
  received_.resize(packet_max);
  ssize_t size = receive_soon();
  if (size < 0 && errno == EAGAIN) {
    if (!wait_for(fd_, POLLIN, deadline))
      return call_error::time_out;
    size = recv(fd_, received_.data(), received_.size(), 0);
  }
  if (size < 0 && errno == ECONNRESET)  // closed with the request unread; what came before is behind the error
    size = recv(fd_, received_.data(), received_.size(), MSG_DONTWAIT);
  if (size <= 0)
    return call_error::no_server;
  reply_size_ = static_cast<size_t>(size);
  return call_error::none;
}

// Most replies come within microseconds: a core that goes to sleep for one takes longer to wake up than the reply to
// come. So this looks for a moment, and lets others run meanwhile. As recv, with errno EAGAIN when nothing came.
ssize_t client::receive_soon()
{
  constexpr auto moment = std::chrono::microseconds(50);
  const clock::time_point end = clock::now() + moment;
  while (true) {
    const ssize_t size = recv(fd_, received_.data(), received_.size(), MSG_DONTWAIT);
    if (size >= 0 || errno != EAGAIN || clock::now() >= end)
      return size;
    sched_yield();
  }
}

call_reply client::call(uint16_t function_id, std::vector<std::vector<unsigned char>>& arguments,
                        std::chrono::milliseconds time_out)
{
  const uint32_t sequence = ++sequence_;
  const std::vector<const_bytes> views(arguments.begin(), arguments.end());
  packet_.clear();
  request_encode(function_id, sequence, views, packet_);
  if (const call_error error = exchange(time_out); error != call_error::none)
    return {.error = error};
  const std::optional<reply> reply = reply_decode({received_.data(), reply_size_});
  if (reply && reply->status == status_busy)
    return {.error = call_error::busy};
  if (!reply || reply->sequence != sequence || reply->function_id != function_id)
    return {.error = call_error::protocol};
  for (size_t i = 0; i < std::min(arguments.size(), reply->arguments.size()); ++i)
    arguments[i].assign(reply->arguments[i].begin(), reply->arguments[i].end());
  return {call_error::none, reply->status, reply->has_result, reply->result};
}

}  // namespace ippc
