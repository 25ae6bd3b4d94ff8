#include "platform/kvbridged/port_socket.h"

#include "platform/kvbridged/settings.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/socket.h>

namespace kvbridged {
namespace {

constexpr uint16_t discovery_ethertype = 0x8863;
constexpr size_t tag_size = 4;
constexpr size_t ethertype_offset = 12;

// Classic BPF: look for the discovery EtherType at 12, 16, 20 and 24, going on only behind a VLAN tag.
std::vector<sock_filter> discovery_filter(port_frames which, uint16_t stag_ethertype)
{
  constexpr int depths = 4;
  constexpr int per_depth = 5;
  const uint32_t match = which == port_frames::discovery ? UINT32_MAX : 0;
  std::vector<sock_filter> program;
  for (int depth = 0; depth < depths; ++depth) {
    // Jumps count from the next instruction; the two verdicts stand at the end, behind one jump.
    const auto to_match = [&](int at) { return static_cast<uint8_t>((depths - depth) * per_depth - at); };
    const uint8_t to_next = 1;
    const bool last = depth == depths - 1;
    const uint32_t offset = static_cast<uint32_t>(ethertype_offset + tag_size * static_cast<size_t>(depth));
    program.push_back(BPF_STMT(BPF_LD | BPF_H | BPF_ABS, offset));
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, discovery_ethertype, to_match(1), 0));
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x8100, static_cast<uint8_t>(to_next + 1), 0));
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x88a8, to_next, 0));
    // Neither: the verdict for others, one behind the match; a tag falls through to the next depth.
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, stag_ethertype, 0, static_cast<uint8_t>(to_match(4) + 1)));
    if (last)  // a fourth tag deep is no discovery frame any more
      program.push_back(BPF_JUMP(BPF_JMP | BPF_JA, 1, 0, 0));
  }
  program.push_back(BPF_STMT(BPF_RET | BPF_K, match));
  program.push_back(BPF_STMT(BPF_RET | BPF_K, ~match));
  return program;
}

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
      setsockopt(fd, SOL_PACKET, PACKET_AUXDATA, &on, sizeof on) != 0)
    give_up("cannot listen on", interface);
}

void tag_put_back(std::vector<unsigned char>& frame, const tpacket_auxdata& aux)
{
  if (!(aux.tp_status & TP_STATUS_VLAN_VALID) || frame.size() < ethertype_offset)
    return;
  const uint16_t tpid = aux.tp_status & TP_STATUS_VLAN_TPID_VALID ? aux.tp_vlan_tpid : 0x8100;
  const unsigned char tag[tag_size] = {static_cast<unsigned char>(tpid >> 8), static_cast<unsigned char>(tpid),
                                       static_cast<unsigned char>(aux.tp_vlan_tci >> 8),
                                       static_cast<unsigned char>(aux.tp_vlan_tci)};
  frame.insert(frame.begin() + ethertype_offset, std::begin(tag), std::end(tag));
}

}  // namespace

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

bool port_socket_read(int fd, std::vector<unsigned char>& frame)
{
  constexpr size_t largest = 65536;
  frame.resize(largest);
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(tpacket_auxdata))];
  iovec part{frame.data(), frame.size()};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  const ssize_t size = recvmsg(fd, &message, 0);
  if (size <= 0)
    return false;
  frame.resize(static_cast<size_t>(size));
  for (cmsghdr* header = CMSG_FIRSTHDR(&message); header; header = CMSG_NXTHDR(&message, header)) {
    if (header->cmsg_level != SOL_PACKET || header->cmsg_type != PACKET_AUXDATA)
      continue;
    tpacket_auxdata aux;
    std::memcpy(&aux, CMSG_DATA(header), sizeof aux);
    tag_put_back(frame, aux);
  }
  return true;
}

}  // namespace kvbridged
