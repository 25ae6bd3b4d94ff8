#include "platform/ippc/server.h"

#include "base/ending_signals.h"
#include "base/listener.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace ippc {
namespace {

// The further groups of who connected. A kernel that has no word of them (before Linux 4.13) leaves a caller with its
// own group alone, and so with fewer rights.
std::optional<std::vector<gid_t>> groups_of(int fd)
{
  std::vector<gid_t> groups(32);
  socklen_t size = 0;
  const auto ask = [&] {
    size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
    return getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) == 0;
  };
  bool told = ask();
  if (!told && errno == ERANGE) {
    groups.resize(size / sizeof(gid_t));
    told = ask();
  }
  if (!told && errno != ENOPROTOOPT)
    return std::nullopt;
  groups.resize(told ? size / sizeof(gid_t) : 0);
  return groups;
}

// Who connected; nothing when the kernel does not tell.
std::optional<caller> peer_of(int fd)
{
  ucred who{};
  socklen_t size = sizeof who;
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &who, &size) != 0)
    return std::nullopt;
  auto groups = groups_of(fd);
  if (!groups)
    return std::nullopt;
  return caller{who.uid, who.gid, std::move(*groups)};
}

std::optional<uid_t> user_of(const std::optional<caller>& peer)
{
  return peer ? std::optional(peer->user) : std::nullopt;
}

// Every packet is to come with its sender's identity, so that an empty one can be told from the end.
void tell_packets_from_end(int fd)
{
  constexpr int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_PASSCRED, &on, sizeof on);
}

// One packet's own size, also where it does not fit, as recv() otherwise.
ssize_t receive(int fd, std::vector<unsigned char>& packet, bool& ended)
{
  alignas(cmsghdr) char identity[CMSG_SPACE(sizeof(ucred))];
  iovec room{packet.data(), packet.size()};
  msghdr message{};
  message.msg_iov = &room;
  message.msg_iovlen = 1;
  message.msg_control = identity;
  message.msg_controllen = sizeof identity;
  const ssize_t size = recvmsg(fd, &message, MSG_TRUNC);
  ended = size == 0 && message.msg_controllen == 0;
  return size;
}

// Tells the peer that there is no place for it, whatever it has asked or is about to ask.
void refuse(int fd)
{
  std::vector<unsigned char> packet;
  reply_encode({.status = status_busy, .arguments = {}}, packet);
  send(fd, packet.data(), packet.size(), MSG_NOSIGNAL);
}

}  // namespace

server::server(std::string path, ippcCallback callback)
    : path_(std::move(path)), dispatch_(callback), packet_(packet_max)
{}

server::~server()
{
  if (thread_.joinable()) {
    eventfd_write(ending_.get(), 1);
    thread_.join();
    unlink(path_.c_str());
  }
}

void server::watch(int fd, uint32_t events, int operation) const
{
  epoll_event event{};
  event.events = events;
  event.data.fd = fd;
  epoll_ctl(poll_.get(), operation, fd, &event);
}

int server::start()
{
  listener_.reset(listener_open(path_, SOCK_SEQPACKET));
  if (!listener_)
    return -1;
  poll_.reset(epoll_create1(EPOLL_CLOEXEC));
  ending_.reset(eventfd(0, EFD_CLOEXEC));
  if (!poll_ || !ending_)
    return -1;
  watch(listener_.get(), EPOLLIN, EPOLL_CTL_ADD);
  watch(ending_.get(), EPOLLIN, EPOLL_CTL_ADD);
  const ending_signals_held held;
  try {
    thread_ = std::thread([this] { serve(); });
  } catch (const std::system_error& error) {
    errno = error.code().value();
  }
  return thread_.joinable() ? 0 : -1;
}

void server::serve()
{
  epoll_event events[connections_max + 2];
  while (true) {
    const int ready = epoll_wait(poll_.get(), events, std::size(events), -1);
    for (int i = 0; i < ready; ++i) {
      if (events[i].data.fd == ending_.get())
        return;
      serve_event(events[i].data.fd, events[i].events);
    }
  }
}

void server::serve_event(int fd, uint32_t events)
{
  if (fd == listener_.get())
    accept_one();
  else if (!connections_.contains(fd))
    return;  // given up since the events were taken
  else if (events & EPOLLOUT)
    write_rest(fd);
  else
    read_one(fd);
}

void server::accept_one()
{
  descriptor accepted(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  const int fd = accepted.get();
  if (fd < 0) {
    // Out of descriptors: the caller waits in the backlog; do not spin on it.
    if (errno == EMFILE || errno == ENFILE)
      usleep(10'000);
    return;
  }
  connection newcomer{std::move(accepted), peer_of(fd), ++requests_, {}};
  if (connections_.size() >= connections_max && !make_room(newcomer)) {
    refuse(fd);
    return;
  }
  tell_packets_from_end(fd);
  connections_[fd] = std::move(newcomer);
  watch(fd, EPOLLIN | EPOLLRDHUP, EPOLL_CTL_ADD);
}

// Drops a connection of the user who has the most, if that is fair. False when nobody has more than the newcomer would.
bool server::make_room(const connection& newcomer)
{
  std::map<std::optional<uid_t>, unsigned> places;
  for (const auto& [fd, client] : connections_)
    ++places[user_of(client.peer)];
  const auto most = std::ranges::max_element(places, {}, [](const auto& one) { return one.second; });
  if (most->second <= places[user_of(newcomer.peer)] + 1)
    return false;
  auto oldest = connections_.end();
  for (auto it = connections_.begin(); it != connections_.end(); ++it)
    if (user_of(it->second.peer) == most->first &&
        (oldest == connections_.end() || it->second.last_request < oldest->second.last_request))
      oldest = it;
  refuse(oldest->first);
  drop(oldest->first);
  return true;
}

void server::drop(int fd)
{
  connections_.erase(fd);
}

void server::read_one(int fd)
{
  bool ended = false;
  const ssize_t size = receive(fd, packet_, ended);
  if (size < 0 && (errno == EAGAIN || errno == EINTR))
    return;
  if (size < 0 || ended)
    return drop(fd);
  const size_t taken = std::min(static_cast<size_t>(size), packet_.size());
  const bool cut = static_cast<size_t>(size) > packet_.size();
  // A packet cut by its size is malformed; what was read of it names id and sequence.
  const const_bytes packet(packet_.data(), cut ? request_header - 1 : taken);
  connection& client = connections_[fd];
  client.last_request = ++requests_;
  const caller_scope scope(client.peer ? &*client.peer : nullptr);
  reply_send(fd, client, dispatch_.run(packet));
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

int kvStartIppcServer(const ippcServer* server)
{
  // Serves until the process ends, so it is never destroyed; only its file goes when the process ends in good order.
  static std::vector<std::string>& paths = *new std::vector<std::string>;
  auto* serving = new ippc::server(server->path, server->callback);
  if (serving->start() == 0) {
    if (paths.empty())
      std::atexit([] {
        for (const std::string& path : paths)
          unlink(path.c_str());
      });
    paths.emplace_back(server->path);
    return 0;
  }
  const int reason = errno;
  delete serving;
  errno = reason;
  return -1;
}
