#include "platform/kvbridged/port_socket.h"

#include "platform/kvbridged/settings.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace kvbridged {
namespace {

[[noreturn]] void give_up(const std::string& what, const std::string& interface)
{
  throw fatal(what + " '" + interface + "': " + std::strerror(errno));
}

void socket_bind(int fd, const std::string& interface)
{
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
  if (address.sll_ifindex == 0)
    throw fatal("no such interface: '" + interface + "'");
  packet_mreq promiscuous{};
  promiscuous.mr_ifindex = address.sll_ifindex;
  promiscuous.mr_type = PACKET_MR_PROMISC;
  const int on = 1;
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      setsockopt(fd, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &promiscuous, sizeof promiscuous) != 0 ||
      setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on) != 0 ||
      setsockopt(fd, SOL_PACKET, PACKET_AUXDATA, &on, sizeof on) != 0 ||
      setsockopt(fd, SOL_PACKET, PACKET_VNET_HDR, &on, sizeof on) != 0)
    give_up("cannot listen on", interface);
}

// What the kernel says beside a frame.
template <typename T>
std::optional<T> said_beside(msghdr& message, int level, int type)
{
  for (cmsghdr* header = CMSG_FIRSTHDR(&message); header; header = CMSG_NXTHDR(&message, header)) {
    if (header->cmsg_level != level || header->cmsg_type != type)
      continue;
    T said;
    std::memcpy(&said, CMSG_DATA(header), sizeof said);
    return said;
  }
  return std::nullopt;
}

// The tag that the kernel took off the frame, if it did.
std::optional<tpacket_auxdata> tag_taken_off(msghdr& message)
{
  auto aux = said_beside<tpacket_auxdata>(message, SOL_PACKET, PACKET_AUXDATA);
  if (!aux || !(aux->tp_status & TP_STATUS_VLAN_VALID))
    return std::nullopt;
  if (!(aux->tp_status & TP_STATUS_VLAN_TPID_VALID))
    aux->tp_vlan_tpid = ctag_ethertype;
  return aux;
}

void mark_say(msghdr& message, std::span<char> control, uint32_t mark)
{
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  cmsghdr* header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SO_MARK;
  header->cmsg_len = CMSG_LEN(sizeof mark);
  std::memcpy(CMSG_DATA(header), &mark, sizeof mark);
}

// Instructions in their order; a jump names the instruction that it goes to, which may not be there yet.
class assembler {
public:
  size_t here() const { return program_.size(); }
  void add(sock_filter instruction) { program_.push_back(instruction); }
  void jump(uint16_t test, uint32_t operand, size_t yes, size_t no)
  {
    const auto steps = [next = here() + 1](size_t target) { return static_cast<uint8_t>(target - next); };
    add(BPF_JUMP(static_cast<uint16_t>(BPF_JMP | BPF_K | test), operand, steps(yes), steps(no)));
  }
  std::vector<sock_filter> take() { return std::move(program_); }

private:
  std::vector<sock_filter> program_;
};

}  // namespace

std::vector<sock_filter> discovery_filter(port_frames which, uint16_t stag_ethertype)
{
  const tag_type_list types = tag_types(stag_ethertype);
  constexpr size_t fixed = 4;  // instructions in front of the comparisons with tag types
  const size_t match = tags_most * (fixed + types.size()) + fixed;
  const size_t other = match + 1;
  assembler out;
  for (size_t depth = 0; depth <= tags_most; ++depth) {
    const auto offset = static_cast<uint32_t>(ethertype_offset + tag_size * depth);
    const bool last = depth == tags_most;
    out.add(BPF_STMT(BPF_LD | BPF_W | BPF_LEN, 0));
    out.jump(BPF_JGE, offset + 2, out.here() + 1, other);
    out.add(BPF_STMT(BPF_LD | BPF_H | BPF_ABS, offset));
    out.jump(BPF_JEQ, discovery_ethertype, match, last ? other : out.here() + 1);
    if (last)
      break;
    const size_t behind = out.here() + types.size();
    for (const uint16_t type : types)
      out.jump(BPF_JEQ, type, behind, out.here() + 1 == behind ? other : out.here() + 1);
  }
  const uint32_t all = which == port_frames::discovery ? UINT32_MAX : 0;
  out.add(BPF_STMT(BPF_RET | BPF_K, all));
  out.add(BPF_STMT(BPF_RET | BPF_K, ~all));
  return out.take();
}

descriptor port_socket_open(const std::string& interface, port_frames which, uint16_t stag_ethertype)
{
  // Protocol 0: nothing comes in before the filter is in place.
  descriptor sock(socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (sock.get() < 0)
    give_up("no packet socket for", interface);
  std::vector<sock_filter> program = discovery_filter(which, stag_ethertype);
  const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  if (setsockopt(sock.get(), SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter) != 0)
    give_up("no socket filter for", interface);
  socket_bind(sock.get(), interface);
  return sock;
}

int port_socket_send(int fd, const port_frame& frame)
{
  iovec parts[] = {{const_cast<offload*>(&frame.left_to_do), sizeof frame.left_to_do},
                   {const_cast<unsigned char*>(frame.bytes.data()), frame.bytes.size()}};
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = std::size(parts);
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof frame.mark)]{};
  if (frame.mark != 0)
    mark_say(message, control, frame.mark);
  return sendmsg(fd, &message, 0) < 0 ? errno : 0;
}

std::optional<mac_address> interface_address(const std::string& interface)
{
  const descriptor sock(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  std::memcpy(request.ifr_name, interface.data(), std::min(interface.size(), sizeof request.ifr_name - 1));
  if (sock.get() < 0 || ioctl(sock.get(), SIOCGIFHWADDR, &request) != 0)
    return std::nullopt;
  mac_address address;
  std::memcpy(address.data(), request.ifr_hwaddr.sa_data, address.size());
  return address;
}

std::optional<mac_address> answer_address(const std::string& interface)
{
  constexpr char management[] = "mng0";
  const auto address = interface_address(management);
  return address ? address : interface_address(interface);
}

void port_reader::tag_put_back(port_frame& frame, uint16_t type, uint16_t control)
{
  std::memmove(buffer_.data(), buffer_.data() + tag_size, ethertype_offset);
  const unsigned char tag[tag_size] = {static_cast<unsigned char>(type >> 8), static_cast<unsigned char>(type),
                                       static_cast<unsigned char>(control >> 8), static_cast<unsigned char>(control)};
  std::copy(std::begin(tag), std::end(tag), buffer_.begin() + ethertype_offset);
  frame.bytes = {buffer_.data(), frame.bytes.size() + tag_size};
  // These two count from the frame's start.
  offload& left = frame.left_to_do;
  if (left.flags & offload::needs_checksum)
    left.checksum_start = static_cast<uint16_t>(left.checksum_start + tag_size);
  if (left.segments != 0)
    left.header_length = static_cast<uint16_t>(left.header_length + tag_size);
}

std::optional<port_frame> port_reader::read(int fd)
{
  port_frame frame;
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(tpacket_auxdata)) + CMSG_SPACE(sizeof frame.mark)];
  iovec parts[] = {{&frame.left_to_do, sizeof frame.left_to_do}, {buffer_.data() + tag_size, largest}};
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = std::size(parts);
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  const ssize_t size = recvmsg(fd, &message, 0);
  // A frame whose segments the header has no word for is gone with this error; the next one may be waiting.
  if (size < 0)
    return errno == EINVAL ? std::optional(port_frame{}) : std::nullopt;
  if (static_cast<size_t>(size) < sizeof frame.left_to_do + ethernet_header || message.msg_flags & MSG_TRUNC)
    return port_frame{};
  frame.bytes = {buffer_.data() + tag_size, static_cast<size_t>(size) - sizeof frame.left_to_do};
  frame.mark = said_beside<uint32_t>(message, SOL_SOCKET, SO_MARK).value_or(0);
  if (const auto tag = tag_taken_off(message))
    tag_put_back(frame, tag->tp_vlan_tpid, tag->tp_vlan_tci);
  return frame;
}

}  // namespace kvbridged
