#include "platform/kvbridged/kernel/helper_device.h"

#include "platform/kvbridged/settings.h"
#include "platform/kvbridged/tap.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kvbridged {
namespace {

constexpr int largest_mtu = 65521;               // that a TAP can have
constexpr int receive_bytes = 64 * 1024 * 1024;  // at most, some 25,000 small frames

void bring_up(const std::string& name)
{
  const descriptor sock(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  std::memcpy(request.ifr_name, name.data(), std::min(name.size(), sizeof request.ifr_name - 1));
  if (ioctl(sock.get(), SIOCGIFFLAGS, &request) != 0)
    throw fatal("no device '" + name + "': " + std::strerror(errno));
  request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
  if (ioctl(sock.get(), SIOCSIFFLAGS, &request) != 0)
    throw fatal("'" + name + "' stays down: " + std::strerror(errno));
}

descriptor tap_make(const std::string& name)
{
  descriptor tap = tap_open(name, largest_mtu);
  if (tap.get() < 0 && (errno == EEXIST || errno == EBUSY))
    throw fatal("there is a device '" + name + "' already: does another kvbridged serve this bridge?");
  if (tap.get() < 0)
    throw fatal("no device '" + name + "': " + std::strerror(errno));
  bring_up(name);
  return tap;
}

descriptor socket_make(const std::string& name, uint16_t stag_ethertype)
{
  descriptor sock = port_socket_open(name, port_frames::discovery, stag_ethertype);
  const int on = 1;
  setsockopt(sock.get(), SOL_SOCKET, SO_RCVBUFFORCE, &receive_bytes, sizeof receive_bytes);
  if (setsockopt(sock.get(), SOL_SOCKET, SO_RCVMARK, &on, sizeof on) != 0)
    throw fatal(std::string("this kernel does not tell a frame's mark: ") + std::strerror(errno));
  return sock;
}

}  // namespace

helper_device::helper_device(const std::string& name, uint16_t stag_ethertype)
    : tap_(tap_make(name)), index_(static_cast<int>(if_nametoindex(name.c_str()))),
      socket_(socket_make(name, stag_ethertype))
{}

int helper_device::give_back(frame_view frame, uint32_t mark) const
{
  return port_socket_send(socket_.get(), {.bytes = frame, .mark = mark});
}

void helper_device::drain() const
{
  for (char frame[2048]; ::read(tap_.get(), frame, sizeof frame) > 0;)
    ;
}

unsigned long helper_device::lost()
{
  tpacket_stats since{};
  socklen_t size = sizeof since;
  if (getsockopt(socket_.get(), SOL_PACKET, PACKET_STATISTICS, &since, &size) == 0)
    lost_ += since.tp_drops;
  return lost_;
}

}  // namespace kvbridged
