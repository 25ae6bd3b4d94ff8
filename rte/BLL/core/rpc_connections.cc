#include "rte/BLL/core/rpc_connections.h"

#include <algorithm>
#include <poll.h>
#include <rpc/rpc.h>
#include <set>
#include <sys/socket.h>

namespace {

bool isConnection(int fd)
{
  sockaddr_storage peer;
  socklen_t size = sizeof peer;
  return getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &size) == 0;
}

// The runtime closes what it finds ended.
void closeConnection(int fd)
{
  shutdown(fd, SHUT_RDWR);
  svc_getreq_common(fd);
}

// The descriptors of all transports, listening ones and UDP among them.
std::set<int> transports()
{
  std::set<int> all;
  for (int i = 0; i < svc_max_pollfd; ++i)
    if (svc_pollfd[i].fd >= 0)
      all.insert(svc_pollfd[i].fd);
  return all;
}

}  // namespace

void rpcConnections_t::tend(const fd_set& ready)
{
  ++round_;
  const std::set<int> all = transports();
  std::erase_if(lastUsed_, [&](const auto& row) { return !all.contains(row.first); });
  for (const int fd : all) {
    if (fd >= FD_SETSIZE)
      closeConnection(fd);
    else if (const auto known = lastUsed_.find(fd); known == lastUsed_.end() ? isConnection(fd) : FD_ISSET(fd, &ready))
      lastUsed_[fd] = round_;
  }
  while (lastUsed_.size() > most) {
    const auto oldest = std::ranges::min_element(lastUsed_, {}, [](const auto& row) { return row.second; });
    closeConnection(oldest->first);
    lastUsed_.erase(oldest);
  }
}
