// Sends forged discovery frames by a subscriber's interface and judges what comes out of the server's.
// Usage: spoofing_wire LINE SERVER CIRCUIT_ID REMOTE_ID COUNT SAMPLE
// A sample of what came out is written to the file SAMPLE (pcap), its number of PADI and PADR to standard output.
// Exit status 1: a frame came out that shows a server another vendor tag than the line's, or none.
#include "fuzz/frames/spoofing.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <random>
#include <string>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

using spoofing::frame;

constexpr size_t addresses = 12;
constexpr size_t tag_size = 4;

int packet_socket(const char* interface)
{
  const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = static_cast<int>(if_nametoindex(interface));
  const int on = 1;
  const int room = 8 << 20;
  if (fd < 0 || setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room) != 0 ||
      setsockopt(fd, SOL_PACKET, PACKET_AUXDATA, &on, sizeof on) != 0 ||
      setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on) != 0 ||
      bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    throw std::system_error(errno, std::generic_category(), interface);
  return fd;
}

// The kernel takes the outermost VLAN tag out of a frame that it hands over.
void tag_put_back(frame& bytes, const tpacket_auxdata& taken)
{
  if (!(taken.tp_status & TP_STATUS_VLAN_VALID))
    return;
  const uint16_t tag[] = {htons(taken.tp_status & TP_STATUS_VLAN_TPID_VALID ? taken.tp_vlan_tpid : 0x8100),
                          htons(taken.tp_vlan_tci)};
  const auto* first = reinterpret_cast<const unsigned char*>(tag);
  bytes.insert(bytes.begin() + addresses, first, first + tag_size);
}

// The next frame; empty when none comes for a long time.
frame receive(int fd)
{
  constexpr int patience_ms = 20'000;
  pollfd wait{fd, POLLIN, 0};
  if (poll(&wait, 1, patience_ms) != 1)
    return {};
  frame bytes(65536);
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(tpacket_auxdata))];
  iovec part{bytes.data(), bytes.size()};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  bytes.resize(static_cast<size_t>(std::max<ssize_t>(recvmsg(fd, &message, 0), 0)));
  if (const cmsghdr* extra = CMSG_FIRSTHDR(&message); extra && extra->cmsg_type == PACKET_AUXDATA) {
    tpacket_auxdata taken;
    std::memcpy(&taken, CMSG_DATA(extra), sizeof taken);
    tag_put_back(bytes, taken);
  }
  return bytes;
}

// As a server reads it that takes any VLAN tag off, of whatever kind and depth.
frame untagged(frame bytes)
{
  while (bytes.size() >= addresses + tag_size + 2) {
    const int type = bytes[addresses] << 8 | bytes[addresses + 1];
    if (type != 0x8100 && type != 0x88a8 && type != 0x9100 && type != 0x9200 && type != 0x9300)
      break;
    bytes.erase(bytes.begin() + addresses, bytes.begin() + addresses + tag_size);
  }
  return bytes;
}

// Half of them are such as the bridge serves.
std::vector<spoofing::vlan_stack> stacks()
{
  std::vector<spoofing::vlan_stack> all(20);
  for (uint32_t i = 0; i < 10; ++i) {
    all.push_back({0x8100'0064 + i});
    all.push_back({0x88a8'0064, 0x8100'0007 + i});
    all.push_back({0x88a8'0064, 0x8100'0007, 0x8100'0008 + i});
  }
  const uint32_t tpids[] = {0x8100, 0x88a8, 0x9100};
  for (size_t depth = 1; depth <= 6; ++depth)
    for (size_t kinds = 0; kinds < 9; ++kinds) {  // the outermost, and the rest
      spoofing::vlan_stack stack(depth, tpids[kinds % 3] << 16 | static_cast<uint32_t>(depth + kinds));
      stack[0] = tpids[kinds / 3] << 16 | (kinds % 2 ? 0 : 7u << 13 | 100);  // with priority, or only that
      all.push_back(stack);
    }
  return all;
}

class capture_file {
public:
  explicit capture_file(const char* path) : file_(path, std::ios::binary)
  {
    const uint32_t header[] = {0xa1b2c3d4, 2 | 4 << 16, 0, 0, 65535, 1};
    put(header);
  }
  void add(const frame& bytes)
  {
    const auto size = static_cast<uint32_t>(bytes.size());
    const uint32_t header[] = {0, 0, size, size};
    put(header);
    file_.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(size));
  }

private:
  template <size_t N>
  void put(const uint32_t (&words)[N])
  {
    file_.write(reinterpret_cast<const char*>(words), sizeof words);
  }
  std::ofstream file_;
};

// A clean PADI of a client of its own: when it has come out, so has what was sent before.
frame marker_make(unsigned number)
{
  frame bytes(60);
  std::fill_n(bytes.begin(), 6, static_cast<unsigned char>(0xff));
  const unsigned char rest[] = {0x02, 0xbe, 0xef, 0, static_cast<unsigned char>(number >> 8),
                                static_cast<unsigned char>(number),
                                // EtherType, version and type, PADI, no session, one Service-Name of no bytes
                                0x88, 0x63, 0x11, 0x09, 0, 0, 0, 4, 0x01, 0x01, 0, 0};
  std::copy(std::begin(rest), std::end(rest), bytes.begin() + 6);
  return bytes;
}

// The vendor tag's value: enterprise 3561, Circuit ID and Remote ID.
std::string own_value(const std::string& circuit_id, const std::string& remote_id)
{
  return std::string("\x00\x00\x0d\xe9\x01", 5) + static_cast<char>(circuit_id.size()) + circuit_id + '\x02' +
         static_cast<char>(remote_id.size()) + remote_id;
}

class run {
public:
  run(char** names, unsigned count)
      : line_(packet_socket(names[0])), server_(packet_socket(names[1])), own_(own_value(names[2], names[3])),
        count_(count), sample_(names[5])
  {}

  bool through(spoofing::forger& forger)
  {
    constexpr unsigned together = 32;
    for (unsigned sent = 0, number = 0; sent < count_; sent += together, ++number) {
      for (unsigned i = 0; i < together; ++i)
        give(forger.next());
      const frame marker = marker_make(number);
      give(marker);
      if (!read_until(marker))
        return false;
    }
    std::printf("%u frames came out, with the line's tag %u\n", came_, with_own_);
    std::printf("in the sample %u\n", sampled_);
    if (with_own_ < count_ / 6) {
      std::printf("too few came out to tell\n");
      return false;
    }
    return true;
  }

private:
  void give(const frame& bytes)
  {
    if (send(line_, bytes.data(), bytes.size(), 0) < 0 && errno != EINVAL)  // cut shorter than a header
      throw std::system_error(errno, std::generic_category(), "send");
  }

  bool read_until(const frame& marker)
  {
    for (;;) {
      const frame bytes = receive(server_);
      if (bytes.empty()) {
        std::printf("nothing comes out any more\n");
        return false;
      }
      if (bytes.size() >= addresses && std::equal(marker.begin() + 6, marker.begin() + addresses, bytes.begin() + 6))
        return true;
      if (!judge(bytes))
        return false;
    }
  }

  bool judge(const frame& bytes)
  {
    constexpr unsigned sample_most = 3000;
    const frame inner = untagged(bytes);
    const uint8_t code = spoofing::read(inner, spoofing::reader::strict).code;
    const bool of_client = code == 0x09 || code == 0x19;
    ++came_;
    with_own_ += of_client;
    if (came_ <= sample_most) {
      sample_.add(bytes);
      sampled_ += of_client;
    }
    const std::string wrong = spoofing::complaint(inner, own_);
    if (wrong.empty())
      return true;
    std::printf("%s:", wrong.c_str());
    for (const unsigned char byte : bytes)
      std::printf(" %02x", byte);
    std::printf("\n");
    return false;
  }

  int line_;
  int server_;
  std::string own_;
  unsigned count_;
  capture_file sample_;
  unsigned came_ = 0;
  unsigned with_own_ = 0;
  unsigned sampled_ = 0;
};

}  // namespace

int main(int argc, char** argv)
{
  if (argc != 7)
    return 2;
  try {
    const char* given = std::getenv("SEED");
    const uint32_t seed = given ? static_cast<uint32_t>(std::strtoul(given, nullptr, 0)) : std::random_device{}();
    std::printf("seed %u\n", seed);
    spoofing::forger forger(seed, stacks());
    return run(argv + 1, static_cast<unsigned>(std::strtoul(argv[5], nullptr, 0))).through(forger) ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "spoofing_wire: %s\n", error.what());
    return 1;
  }
}
