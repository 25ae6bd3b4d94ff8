#include "platform/kvbridged/tap.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <linux/if_tun.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace kvbridged {
namespace {

ifreq request_for(const std::string& name)
{
  ifreq request{};
  std::memcpy(request.ifr_name, name.data(), std::min(name.size(), sizeof request.ifr_name - 1));
  return request;
}

// Room for what the agent gives back in a burst while this process reads something else; best effort.
void queue_set(const std::string& name)
{
  constexpr int frames = 10'000;
  const descriptor sock(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request = request_for(name);
  request.ifr_qlen = frames;
  ioctl(sock.get(), SIOCSIFTXQLEN, &request);
}

// The kernel's own IPv6 chatter is no discovery frame; without IPv6 in the kernel there is nothing to switch off.
void ipv6_off(const std::string& name)
{
  std::ofstream("/proc/sys/net/ipv6/conf/" + name + "/disable_ipv6") << "1\n";
}

}  // namespace

bool tap_mtu_set(const std::string& name, int mtu)
{
  const descriptor sock(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request = request_for(name);
  request.ifr_mtu = mtu;
  return sock.get() >= 0 && ioctl(sock.get(), SIOCSIFMTU, &request) == 0;
}

descriptor tap_open(const std::string& name, int mtu)
{
  if (if_nametoindex(name.c_str()) != 0) {
    errno = EEXIST;
    return descriptor();
  }
  descriptor tap(open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC));
  ifreq request = request_for(name);
  request.ifr_flags = IFF_TAP | IFF_NO_PI;
  if (tap.get() < 0 || ioctl(tap.get(), TUNSETIFF, &request) != 0 || !tap_mtu_set(name, mtu))
    return descriptor();
  queue_set(name);
  ipv6_off(name);
  return tap;
}

}  // namespace kvbridged
