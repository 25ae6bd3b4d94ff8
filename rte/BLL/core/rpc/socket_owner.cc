#include "rte/BLL/core/rpc/socket_owner.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

namespace {

struct request_t {
  nlmsghdr header;
  inet_diag_req_v2 what;
};

class diagnosis_t {
public:
  diagnosis_t() : fd_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG))
  {
    const timeval patience = {1, 0};
    setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  }
  ~diagnosis_t()
  {
    if (fd_ >= 0)
      close(fd_);
  }
  diagnosis_t(const diagnosis_t&) = delete;
  diagnosis_t& operator=(const diagnosis_t&) = delete;

  // Appends the sockets that the kernel finds. False if it has not answered to the end.
  bool ask(const inet_diag_req_v2& what, bool all, std::vector<inet_diag_msg>& found);

private:
  enum class answer_t { more, complete, failed };
  static answer_t read(const char* bytes, size_t size, std::vector<inet_diag_msg>& found);

  int fd_;
};

bool diagnosis_t::ask(const inet_diag_req_v2& what, bool all, std::vector<inet_diag_msg>& found)
{
  request_t request = {};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  request.header.nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | (all ? NLM_F_DUMP : 0));
  request.what = what;
  if (send(fd_, &request, sizeof request, 0) != sizeof request)
    return false;
  alignas(nlmsghdr) char bytes[32 * 1024];
  for (;;) {
    const ssize_t size = recv(fd_, bytes, sizeof bytes, 0);
    const answer_t answer = size > 0 ? read(bytes, static_cast<size_t>(size), found) : answer_t::failed;
    if (answer != answer_t::more || !all)
      return answer != answer_t::failed;
  }
}

diagnosis_t::answer_t diagnosis_t::read(const char* bytes, size_t size, std::vector<inet_diag_msg>& found)
{
  while (size >= sizeof(nlmsghdr)) {
    nlmsghdr header;
    std::memcpy(&header, bytes, sizeof header);
    if (header.nlmsg_type == NLMSG_DONE)
      return answer_t::complete;
    if (header.nlmsg_type != SOCK_DIAG_BY_FAMILY || header.nlmsg_len > size ||
        header.nlmsg_len < NLMSG_LENGTH(sizeof(inet_diag_msg)))
      return answer_t::failed;
    std::memcpy(&found.emplace_back(), bytes + NLMSG_HDRLEN, sizeof(inet_diag_msg));
    const size_t step = std::min<size_t>(NLMSG_ALIGN(header.nlmsg_len), size);
    bytes += step;
    size -= step;
  }
  return answer_t::more;
}

inet_diag_req_v2 inquiry(const rpcPeer_t& peer, uint8_t family)
{
  inet_diag_req_v2 what = {};
  what.sdiag_family = family;
  what.sdiag_protocol = static_cast<uint8_t>(peer.protocol);
  what.idiag_states = ~0U;
  what.id.idiag_sport = peer.caller.sin_port;
  what.id.idiag_cookie[0] = what.id.idiag_cookie[1] = static_cast<uint32_t>(INET_DIAG_NOCOOKIE);
  return what;
}

// The socket with both addresses. An IPv6 socket that talks to an IPv4 address is found by that.
bool findTcp(const rpcPeer_t& peer, std::vector<inet_diag_msg>& found)
{
  inet_diag_req_v2 what = inquiry(peer, AF_INET);
  what.id.idiag_dport = peer.own.sin_port;
  what.id.idiag_src[0] = peer.caller.sin_addr.s_addr;
  what.id.idiag_dst[0] = peer.own.sin_addr.s_addr;
  if (!diagnosis_t().ask(what, false, found) || found.size() != 1)
    return false;
  // In their stead the kernel finds a socket that listens at the caller's port.
  const inet_diag_msg& socket = found.front();
  const bool talks = socket.idiag_state == TCP_ESTABLISHED || socket.idiag_state == TCP_FIN_WAIT1 ||
                     socket.idiag_state == TCP_FIN_WAIT2;
  return talks && socket.id.idiag_sport == peer.caller.sin_port && socket.id.idiag_dport == peer.own.sin_port;
}

// All sockets with the caller's port, of whatever address: one may send from another's, and to another than the one
// that it is connected to.
bool findUdp(const rpcPeer_t& peer, std::vector<inet_diag_msg>& found)
{
  diagnosis_t kernel;
  return kernel.ask(inquiry(peer, AF_INET), true, found) && kernel.ask(inquiry(peer, AF_INET6), true, found);
}

bool isLoopback(const sockaddr_in& address)
{
  return ntohl(address.sin_addr.s_addr) >> IN_CLASSA_NSHIFT == IN_LOOPBACKNET;
}

}  // namespace

std::optional<uid_t> socketOwner(const rpcPeer_t& peer)
{
  std::vector<inet_diag_msg> found;
  const bool answered = isLoopback(peer.caller) && (peer.protocol == IPPROTO_TCP ? findTcp : findUdp)(peer, found);
  if (!answered || found.empty())
    return {};
  const uid_t owner = found.front().idiag_uid;
  // A closed TCP socket lingers without inode; the kernel says that it is root's.
  const bool certain = std::ranges::all_of(
      found, [&](const inet_diag_msg& socket) { return socket.idiag_uid == owner && socket.idiag_inode != 0; });
  return certain ? std::optional(owner) : std::nullopt;
}
