#include "platform/kvbridged/kernel/links.h"

#include "platform/kvbridged/settings.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace kvbridged {
namespace {

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

}  // namespace

std::vector<link_info> links_all()
{
  std::vector<link_info> links;
  netlink_request request(RTM_GETLINK, NLM_F_DUMP, ifinfomsg{});
  if (const int error = request.send([&](const nlmsghdr* message) { links.push_back(link_of(message)); }); error != 0)
    throw fatal(std::string("netlink: ") + std::strerror(error));
  return links;
}

link_watch::link_watch(loop& events, listener told)
    : events_(events), listener_(std::move(told)), socket_(netlink_open(RTMGRP_LINK | RTMGRP_TC))
{
  events_.watch(mnl_socket_get_fd(socket_.get()), [this] { read(); });
}

link_watch::~link_watch()
{
  events_.forget(mnl_socket_get_fd(socket_.get()));
}

void link_watch::read()
{
  alignas(nlmsghdr) std::array<char, netlink_message_most> buffer;
  const netlink_callback hand_out = [this](const nlmsghdr* message) {
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
    netlink_hand_out(buffer.data(), static_cast<size_t>(size), hand_out);
  else if (size < 0 && errno == ENOBUFS)
    listener_.lost();
}

}  // namespace kvbridged
