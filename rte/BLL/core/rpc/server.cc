#include "rte/BLL/core/rpc/server.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr uint32_t lastFragment = 0x80000000;
constexpr size_t markSize = sizeof(uint32_t);
constexpr size_t largestReply = lastFragment - 1;

bool mustWait()
{
  return errno == EAGAIN || errno == EINTR;
}

constexpr int longestWait_ms = 1000;
constexpr int pauseWithoutDescriptors_ms = 100;
constexpr size_t largestDatagram = 65507;

thread_local rpcServer_t* server = nullptr;

std::mutex& libraryTable()
{
  static std::mutex& table = *new std::mutex;  // outlives the proxies
  return table;
}

std::vector<pollfd> libraryTransports()
{
  std::vector<pollfd> all;
  std::copy_if(svc_pollfd, svc_pollfd + svc_max_pollfd, std::back_inserter(all),
               [](const pollfd& entry) { return entry.fd >= 0; });
  return all;
}

void serveLibrary(std::span<pollfd> waited)
{
  const auto ready = std::ranges::count_if(waited, [](const pollfd& entry) { return entry.revents != 0; });
  if (ready > 0)
    svc_getreq_poll(waited.data(), static_cast<int>(ready));
}

}  // namespace

rpcConnection_t::rpcConnection_t(int fd, const rpcService_t& service, const sockaddr_in& own, const sockaddr_in& caller)
    : service_(service), peer_{fd, IPPROTO_TCP, own, caller}
{}

rpcConnection_t::~rpcConnection_t()
{
  close(peer_.fd);
}

short rpcConnection_t::events() const
{
  return replies_.empty() ? POLLIN : POLLOUT;
}

bool rpcConnection_t::tend(const rpcAdmit_t& admit)
{
  if (!flush() || (replies_.empty() && !receive()))
    return false;
  while (replies_.empty() && takeRecord()) {
    const std::string reply = rpcAnswer(service_, record_, peer_, admit, largestReply);
    record_.clear();
    if (reply.empty())
      continue;
    const uint32_t mark = htonl(static_cast<uint32_t>(reply.size()) | lastFragment);
    replies_.append(reinterpret_cast<const char*>(&mark), markSize) += reply;
    if (!flush())
      return false;
  }
  return !tooLong_ && !(ended_ && replies_.empty());
}

bool rpcConnection_t::receive()
{
  char bytes[16 * 1024];
  const ssize_t count = recv(peer_.fd, bytes, sizeof bytes, 0);
  if (count < 0)
    return mustWait();
  ended_ = count == 0;
  received_.append(bytes, static_cast<size_t>(count));
  return true;
}

bool rpcConnection_t::flush()
{
  while (!replies_.empty()) {
    const ssize_t count = send(peer_.fd, replies_.data(), replies_.size(), MSG_NOSIGNAL);
    if (count < 0)
      return mustWait();
    replies_.erase(0, static_cast<size_t>(count));
  }
  return true;
}

// Moves whole fragments from the front of what was received to the record. True when that was its last one.
bool rpcConnection_t::takeRecord()
{
  size_t taken = 0;
  bool whole = false;
  while (!whole && received_.size() - taken >= markSize) {
    uint32_t mark;
    std::memcpy(&mark, received_.data() + taken, markSize);
    mark = ntohl(mark);
    const size_t length = mark & ~lastFragment;
    tooLong_ = record_.size() + length > largestRecord;
    if (tooLong_ || received_.size() - taken - markSize < length)
      break;
    record_.append(received_, taken + markSize, length);
    taken += markSize + length;
    whole = mark & lastFragment;
  }
  received_.erase(0, taken);
  return whole;
}

rpcServer_t::rpcServer_t(rpcAdmit_t admit)
    : admit_(std::move(admit)), datagram_(largestDatagram), libraryTransportsBefore_(libraryTransports().size()),
      library_(libraryTable(), std::defer_lock)
{
  server = this;
}

rpcServer_t::~rpcServer_t()
{
  server = nullptr;
  for (const auto& [fd, socket] : sockets_)
    close(fd);
}

rpcServer_t* rpcServer_t::ofThisThread()
{
  return server;
}

void rpcServer_t::add(const rpcService_t& service, int fd, int protocol)
{
  socket_t socket{service, protocol, {}};
  socklen_t size = sizeof socket.address;
  getsockname(fd, reinterpret_cast<sockaddr*>(&socket.address), &size);
  fcntl(fd, F_SETFL, O_NONBLOCK);
  sockets_[fd] = socket;
}

void rpcServer_t::remove(rpcprog_t program, rpcvers_t version)
{
  std::erase_if(sockets_, [&](const auto& row) {
    const rpcService_t& service = row.second.service;
    const bool meant = service.program == program && service.version == version;
    if (meant)
      close(row.first);
    return meant;
  });
}

void rpcServer_t::adoptLibraryTransports()
{
  if (libraryTransports().size() > libraryTransportsBefore_)
    (void)library_.try_lock();
}

std::vector<pollfd> rpcServer_t::waitedFor(int wake) const
{
  std::vector<pollfd> all{{wake, POLLIN, 0}};
  for (const auto& [fd, socket] : sockets_)
    all.push_back({fd, POLLIN, 0});
  for (const auto& [fd, client] : clients_)
    all.push_back({fd, client.connection->events(), 0});
  return all;
}

bool rpcServer_t::serve(int wake)
{
  std::vector<pollfd> all = waitedFor(wake);
  const auto own = static_cast<std::ptrdiff_t>(all.size());
  if (library_.owns_lock())
    std::ranges::copy(libraryTransports(), std::back_inserter(all));
  const int count = poll(all.data(), all.size(), longestWait_ms);
  if (count <= 0)
    return count == 0 || errno == EINTR;
  ++round_;
  if (eventfd_t ignored; all.front().revents)
    eventfd_read(wake, &ignored);
  for (auto entry = all.begin() + 1; entry != all.begin() + own; ++entry)
    if (entry->revents)
      serveReady(*entry);
  serveLibrary({all.begin() + own, all.end()});
  return true;
}

// A descriptor may have been closed, or be another's, since it was found ready: nothing here waits for input.
void rpcServer_t::serveReady(const pollfd& ready)
{
  if (const auto found = sockets_.find(ready.fd); found != sockets_.end()) {
    const socket_t socket = found->second;  // a program may be registered anew from its own dispatch routine
    return socket.protocol == IPPROTO_UDP ? serveDatagram(ready.fd, socket) : acceptClient(ready.fd, socket);
  }
  const auto found = clients_.find(ready.fd);
  if (found == clients_.end())
    return;
  found->second.lastUsed = round_;
  if (!found->second.connection->tend(admit_))
    clients_.erase(found);
}

void rpcServer_t::serveDatagram(int fd, const socket_t& socket)
{
  rpcPeer_t peer{fd, socket.protocol, socket.address, {}};
  auto* const address = reinterpret_cast<sockaddr*>(&peer.caller);
  socklen_t size = sizeof peer.caller;
  const ssize_t count = recvfrom(fd, datagram_.data(), datagram_.size(), 0, address, &size);
  if (count < 0)
    return;
  const std::span<char> message(datagram_.data(), static_cast<size_t>(count));
  const std::string reply = rpcAnswer(socket.service, message, peer, admit_, largestDatagram);
  if (!reply.empty())
    sendto(fd, reply.data(), reply.size(), MSG_NOSIGNAL, address, size);
}

void rpcServer_t::acceptClient(int fd, const socket_t& socket)
{
  sockaddr_in caller = {};
  socklen_t size = sizeof caller;
  const int client = accept4(fd, reinterpret_cast<sockaddr*>(&caller), &size, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (client >= 0) {
    clients_[client] = {std::make_unique<rpcConnection_t>(client, socket.service, socket.address, caller), round_};
    if (clients_.size() > mostConnections)
      closeOldest();
  } else if ((errno == EMFILE || errno == ENFILE) && !closeOldest()) {
    poll(nullptr, 0, pauseWithoutDescriptors_ms);  // others have taken all: the client stays in the queue meanwhile
  }
}

// False if there is none.
bool rpcServer_t::closeOldest()
{
  const auto oldest = std::ranges::min_element(clients_, {}, [](const auto& row) { return row.second.lastUsed; });
  if (oldest == clients_.end())
    return false;
  clients_.erase(oldest);
  return true;
}
