// Requests of the kernel by rtnetlink, and what it answers.
#ifndef PLATFORM_KVBRIDGED_KERNEL_NETLINK_H
#define PLATFORM_KVBRIDGED_KERNEL_NETLINK_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <libmnl/libmnl.h>
#include <linux/netlink.h>
#include <memory>

namespace kvbridged {

inline constexpr size_t netlink_message_most = 32768;  // bytes that the kernel fills

struct netlink_close {
  void operator()(mnl_socket* socket) const { mnl_socket_close(socket); }
};
using netlink_socket = std::unique_ptr<mnl_socket, netlink_close>;

// Listening to the groups. Throws fatal.
netlink_socket netlink_open(unsigned groups);

using netlink_callback = std::function<void(const nlmsghdr*)>;

// Hands out the messages among the bytes. False with errno set when one of them says that a request has failed.
bool netlink_hand_out(const char* bytes, size_t size, const netlink_callback& told);

class netlink_request {
public:
  template <typename Header>
  netlink_request(uint16_t type, unsigned flags, const Header& header)
      : buffer_{}, message_(mnl_nlmsg_put_header(buffer_.data()))
  {
    message_->nlmsg_type = type;
    message_->nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
    message_->nlmsg_seq = 1;
    *static_cast<Header*>(mnl_nlmsg_put_extra_header(message_, sizeof header)) = header;
  }
  netlink_request(const netlink_request&) = delete;
  netlink_request& operator=(const netlink_request&) = delete;

  // To put attributes in.
  nlmsghdr* message() { return message_; }

  // Waits for the whole answer, of a request that has one (NLM_F_DUMP, NLM_F_ACK). 0 or an errno value. Throws fatal.
  int send(const netlink_callback& told = [](const nlmsghdr*) {});

private:
  alignas(nlmsghdr) std::array<char, netlink_message_most> buffer_;
  nlmsghdr* message_;
};

}  // namespace kvbridged

#endif
