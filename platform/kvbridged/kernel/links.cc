#include "platform/kvbridged/kernel/links.h"

#include "platform/kvbridged/settings.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace kvbridged {
namespace {

constexpr size_t buffer_size = 32768;  // what the kernel fills at most

[[noreturn]] void give_up()
{
  throw fatal(std::string("netlink: ") + std::strerror(errno));
}

netlink_socket socket_open(unsigned groups)
{
  netlink_socket sock(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC));
  if (!sock || mnl_socket_bind(sock.get(), groups, MNL_SOCKET_AUTOPID) != 0)
    give_up();
  return sock;
}

int kind_read(const nlattr* attribute, void* is_bridge)
{
  if (mnl_attr_get_type(attribute) == IFLA_INFO_KIND)
    *static_cast<bool*>(is_bridge) = std::strcmp(mnl_attr_get_str(attribute), "bridge") == 0;
  return MNL_CB_OK;
}

int attribute_read(const nlattr* attribute, void* to)
{
  link_info& link = *static_cast<link_info*>(to);
  const int type = mnl_attr_get_type(attribute);
  if (type == IFLA_IFNAME)
    link.name = mnl_attr_get_str(attribute);
  else if (type == IFLA_MASTER)
    link.master = static_cast<int>(mnl_attr_get_u32(attribute));
  else if (type == IFLA_LINKINFO)
    mnl_attr_parse_nested(attribute, kind_read, &link.is_bridge);
  return MNL_CB_OK;
}

link_info link_of(const nlmsghdr* message)
{
  link_info link;
  link.index = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message))->ifi_index;
  mnl_attr_parse(message, sizeof(ifinfomsg), attribute_read, &link);
  return link;
}

// Bridges tell of their ports in messages of their own family, which say less.
bool is_of_all_families(const nlmsghdr* message)
{
  return static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message))->ifi_family == AF_UNSPEC;
}

using message_callback = std::function<void(const nlmsghdr*)>;

int call_back(const nlmsghdr* message, void* callback)
{
  (*static_cast<const message_callback*>(callback))(message);
  return MNL_CB_OK;
}

// Sends a request of a dump and hands out what comes. False with errno set on failure.
template <typename Header>
bool dump(uint16_t type, const Header& header, message_callback callback)
{
  alignas(nlmsghdr) std::array<char, buffer_size> buffer{};
  const netlink_socket sock = socket_open(0);
  nlmsghdr* request = mnl_nlmsg_put_header(buffer.data());
  request->nlmsg_type = type;
  request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request->nlmsg_seq = 1;
  *static_cast<Header*>(mnl_nlmsg_put_extra_header(request, sizeof header)) = header;
  if (mnl_socket_sendto(sock.get(), request, request->nlmsg_len) < 0)
    return false;
  for (int more = MNL_CB_OK; more == MNL_CB_OK;) {
    const ssize_t size = mnl_socket_recvfrom(sock.get(), buffer.data(), buffer.size());
    if (size < 0)
      return false;
    more = mnl_cb_run(buffer.data(), static_cast<size_t>(size), 1, mnl_socket_get_portid(sock.get()), call_back,
                      &callback);
    if (more < 0)
      return false;
  }
  return true;
}

}  // namespace

void netlink_close::operator()(mnl_socket* socket) const
{
  mnl_socket_close(socket);
}

std::vector<link_info> links_all()
{
  std::vector<link_info> links;
  if (!dump(RTM_GETLINK, ifinfomsg{}, [&](const nlmsghdr* message) { links.push_back(link_of(message)); }))
    give_up();
  return links;
}

bool has_filters(int interface)
{
  bool any = false;
  for (const uint32_t side : {TC_H_MIN_INGRESS, TC_H_MIN_EGRESS}) {
    tcmsg request{};
    request.tcm_ifindex = interface;
    request.tcm_parent = TC_H_MAKE(TC_H_CLSACT, side);
    dump(RTM_GETTFILTER, request, [&](const nlmsghdr*) { any = true; });
  }
  return any;
}

link_watch::link_watch(loop& events, listener told)
    : events_(events), listener_(std::move(told)), socket_(socket_open(RTMGRP_LINK | RTMGRP_TC))
{
  events_.watch(mnl_socket_get_fd(socket_.get()), [this] { read(); });
}

link_watch::~link_watch()
{
  events_.forget(mnl_socket_get_fd(socket_.get()));
}

void link_watch::read()
{
  alignas(nlmsghdr) std::array<char, buffer_size> buffer;
  message_callback hand_out = [this](const nlmsghdr* message) {
    const uint16_t type = message->nlmsg_type;
    if (type == RTM_NEWLINK && is_of_all_families(message))
      listener_.seen(link_of(message));
    else if (type == RTM_DELLINK && is_of_all_families(message))
      listener_.gone(link_of(message).index);
    else if (type == RTM_NEWTFILTER || type == RTM_DELTFILTER || type == RTM_DELQDISC)
      listener_.filters(static_cast<const tcmsg*>(mnl_nlmsg_get_payload(message))->tcm_ifindex);
  };
  const ssize_t size = recv(mnl_socket_get_fd(socket_.get()), buffer.data(), buffer.size(), MSG_DONTWAIT);
  if (size > 0)
    mnl_cb_run(buffer.data(), static_cast<size_t>(size), 0, 0, call_back, &hand_out);
  else if (size < 0 && errno == ENOBUFS)
    listener_.lost();
}

}  // namespace kvbridged
