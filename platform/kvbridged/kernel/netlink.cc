#include "platform/kvbridged/kernel/netlink.h"

#include "platform/kvbridged/settings.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>

namespace kvbridged {
namespace {

int call_back(const nlmsghdr* message, void* callback)
{
  (*static_cast<const netlink_callback*>(callback))(message);
  return MNL_CB_OK;
}

int hand_out(const char* bytes, size_t size, unsigned sequence, unsigned port, const netlink_callback& told)
{
  return mnl_cb_run(bytes, size, sequence, port, call_back, const_cast<netlink_callback*>(&told));
}

}  // namespace

netlink_socket netlink_open(unsigned groups)
{
  netlink_socket sock(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC));
  if (!sock || mnl_socket_bind(sock.get(), groups, MNL_SOCKET_AUTOPID) != 0)
    throw fatal(std::string("netlink: ") + std::strerror(errno));
  return sock;
}

bool netlink_hand_out(const char* bytes, size_t size, const netlink_callback& told)
{
  return hand_out(bytes, size, 0, 0, told) >= 0;
}

int netlink_request::send(const netlink_callback& told)
{
  const netlink_socket sock = netlink_open(0);
  if (mnl_socket_sendto(sock.get(), message_, message_->nlmsg_len) < 0)
    return errno;
  const unsigned sequence = message_->nlmsg_seq, port = mnl_socket_get_portid(sock.get());
  for (int more = MNL_CB_OK; more == MNL_CB_OK;) {
    const ssize_t size = mnl_socket_recvfrom(sock.get(), buffer_.data(), buffer_.size());
    more = size < 0 ? MNL_CB_ERROR : hand_out(buffer_.data(), static_cast<size_t>(size), sequence, port, told);
    if (more == MNL_CB_ERROR)
      return errno;
  }
  return 0;
}

}  // namespace kvbridged
