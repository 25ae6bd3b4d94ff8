#include "platform/ippc/server.h"

#include "platform/ippc/listener.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace ippc {

server::server(std::string path, ippcCallback callback)
    : path_(std::move(path)), dispatch_(callback), packet_(packet_max)
{}

server::~server()
{
  if (thread_.joinable()) {
    eventfd_write(ending_, 1);
    thread_.join();
    unlink(path_.c_str());
  }
  for (const auto& [fd, client] : connections_)
    close(fd);
  for (const int fd : {listener_, poll_, ending_})
    if (fd >= 0)
      close(fd);
}

void server::watch(int fd, uint32_t events, int operation) const
{
  epoll_event event{};
  event.events = events;
  event.data.fd = fd;
  epoll_ctl(poll_, operation, fd, &event);
}

int server::start()
{
  listener_ = listener_open(path_);
  if (listener_ < 0)
    return -1;
  poll_ = epoll_create1(EPOLL_CLOEXEC);
  ending_ = eventfd(0, EFD_CLOEXEC);
  if (poll_ < 0 || ending_ < 0)
    return -1;
  watch(listener_, EPOLLIN, EPOLL_CTL_ADD);
  watch(ending_, EPOLLIN, EPOLL_CTL_ADD);
  // Signals are the main thread's affair.
  sigset_t all;
  sigset_t former;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &former);
  try {
    thread_ = std::thread([this] { serve(); });
  } catch (const std::system_error& error) {
    errno = error.code().value();
  }
  pthread_sigmask(SIG_SETMASK, &former, nullptr);
  return thread_.joinable() ? 0 : -1;
}

void server::serve()
{
  epoll_event events[connections_max + 2];
  while (true) {
    const int ready = epoll_wait(poll_, events, std::size(events), -1);
    for (int i = 0; i < ready; ++i) {
      const int fd = events[i].data.fd;
      if (fd == ending_)
        return;
      if (fd == listener_)
        accept_one();
      else if (events[i].events & EPOLLOUT)
        write_rest(fd);
      else
        read_one(fd, (events[i].events & (EPOLLHUP | EPOLLRDHUP | EPOLLERR)) != 0);
    }
  }
}

void server::accept_one()
{
  const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (fd < 0) {
    // Out of descriptors: the caller waits in the backlog; do not spin on it.
    if (errno == EMFILE || errno == ENFILE)
      usleep(10'000);
    return;
  }
  if (connections_.size() >= connections_max) {
    close(fd);
    return;
  }
  connections_[fd];
  watch(fd, EPOLLIN | EPOLLRDHUP, EPOLL_CTL_ADD);
}

void server::drop(int fd)
{
  connections_.erase(fd);
  close(fd);
}

void server::read_one(int fd, bool hung_up)
{
  // With MSG_TRUNC the count is the packet's own size: one that does not fit shows.
  const ssize_t size = recv(fd, packet_.data(), packet_.size(), MSG_TRUNC);
  if (size < 0 && (errno == EAGAIN || errno == EINTR))
    return;
  // An empty packet reads like the end; only a peer that hung up has ended.
  if (size < 0 || (size == 0 && hung_up))
    return drop(fd);
  const size_t taken = std::min(static_cast<size_t>(size), packet_.size());
  const bool cut = static_cast<size_t>(size) > packet_.size();
  // A packet cut by its size is malformed; what was read of it names id and sequence.
  const const_bytes packet(packet_.data(), cut ? request_header - 1 : taken);
  reply_send(fd, connections_[fd], dispatch_.run(packet));
}

void server::reply_send(int fd, connection& client, const std::vector<unsigned char>& packet)
{
  if (send(fd, packet.data(), packet.size(), MSG_NOSIGNAL) >= 0)
    return;
  if (errno != EAGAIN && errno != EINTR)
    return drop(fd);
  client.unsent = packet;
  watch(fd, EPOLLOUT, EPOLL_CTL_MOD);
}

void server::write_rest(int fd)
{
  connection& client = connections_[fd];
  if (send(fd, client.unsent.data(), client.unsent.size(), MSG_NOSIGNAL) < 0) {
    if (errno != EAGAIN && errno != EINTR)
      drop(fd);
    return;
  }
  client.unsent = {};
  watch(fd, EPOLLIN | EPOLLRDHUP, EPOLL_CTL_MOD);
}

}  // namespace ippc

int kvInitIppc(void)
{
  return 0;
}

int kvStartIppcServer(const ippcServer* description)
{
  // Serves until the process ends, so it is never destroyed; only its file goes when the process ends in good order.
  static std::vector<std::string>& paths = *new std::vector<std::string>;
  auto* server = new ippc::server(description->path, description->callback);
  if (server->start() == 0) {
    if (paths.empty())
      std::atexit([] {
        for (const std::string& path : paths)
          unlink(path.c_str());
      });
    paths.emplace_back(description->path);
    return 0;
  }
  const int reason = errno;
  delete server;
  errno = reason;
  return -1;
}
