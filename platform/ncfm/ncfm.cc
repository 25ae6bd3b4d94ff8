#include "platform/ncfm/ncfm.h"

#include "platform/nodeinfo/node_conf.h"

#include <arpa/inet.h>
#include <array>
#include <charconv>
#include <chrono>
#include <cstring>
#include <ifaddrs.h>
#include <map>
#include <mutex>
#include <net/if.h>
#include <netinet/in.h>
#include <optional>
#include <string>

namespace {

constexpr char management_interface[] = "mng0";

using clock = std::chrono::steady_clock;
using ipv4 = std::array<uint8_t, 4>;
using ipv6 = std::array<uint8_t, 16>;

struct addresses {
  std::optional<ipv4> v4;
  std::optional<ipv6> v6;  // a global one before a link-local one
  bool v6_global = false;
};

// All interfaces' addresses as one reading of the kernel gave them. Identifiers ask for each frame: a reading serves
// for a second.
class address_cache {
public:
  addresses of(const std::string& device)
  {
    const std::lock_guard lock(mutex_);
    if (const clock::time_point now = clock::now(); now >= stale_) {
      read();
      stale_ = now + std::chrono::seconds(1);
    }
    const auto at = devices_.find(device);
    return at == devices_.end() ? addresses{} : at->second;
  }

private:
  void read()
  {
    devices_.clear();
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0)
      return;
    for (const ifaddrs* entry = list; entry; entry = entry->ifa_next)
      if (entry->ifa_addr)
        keep(devices_[entry->ifa_name], *entry->ifa_addr);
    freeifaddrs(list);
  }

  static void keep(addresses& device, const sockaddr& address)
  {
    if (address.sa_family == AF_INET && !device.v4) {
      sockaddr_in in;
      std::memcpy(&in, &address, sizeof in);
      device.v4.emplace();
      std::memcpy(device.v4->data(), &in.sin_addr, 4);
    } else if (address.sa_family == AF_INET6) {
      sockaddr_in6 in;
      std::memcpy(&in, &address, sizeof in);
      const bool global = !IN6_IS_ADDR_LINKLOCAL(&in.sin6_addr);
      if (device.v6 && (device.v6_global || !global))
        return;
      device.v6_global = global;
      device.v6.emplace();
      std::memcpy(device.v6->data(), &in.sin6_addr, 16);
    }
  }

  std::mutex mutex_;
  clock::time_point stale_{};
  std::map<std::string, addresses> devices_;
};

// The card's position as the node's file said it at most a second ago; nothing when it does not.
class position_cache {
public:
  std::optional<uint8_t> get()
  {
    const std::lock_guard lock(mutex_);
    if (const clock::time_point now = clock::now(); now >= stale_) {
      position_ = read();
      stale_ = now + std::chrono::seconds(1);
    }
    return position_;
  }

private:
  static std::optional<uint8_t> read()
  {
    const std::optional<std::string> text = node_conf::value("board_position");
    unsigned number = 0;
    if (!text || std::from_chars(text->data(), text->data() + text->size(), number).ec != std::errc{} || number > 255)
      return std::nullopt;
    return static_cast<uint8_t>(number);
  }

  std::mutex mutex_;
  clock::time_point stale_{};
  std::optional<uint8_t> position_;
};

position_cache& position()
{
  static auto& instance = *new position_cache;
  return instance;
}

address_cache& cache()
{
  static auto& instance = *new address_cache;  // workers may ask until the process is gone
  return instance;
}

}  // namespace

int ncfmGetMyBoardPos(ncfmBoardPos* pos)
{
  const std::optional<uint8_t> number = position().get();
  if (!number)
    return -1;
  *pos = {*number, {}};
  return 0;
}

int ncfmGetInterface(const char* device, ncfmInterface* itf)
{
  std::optional<ipv4> address = cache().of(device).v4;
  if (!address)
    address = cache().of(management_interface).v4;
  if (!address)
    return -1;
  std::memcpy(itf->ipv4, address->data(), sizeof itf->ipv4);
  return 0;
}

int ncfmGetIpv6(uint8_t address[16])
{
  const std::optional<ipv6> found = cache().of(management_interface).v6;
  if (!found)
    return -1;
  std::memcpy(address, found->data(), found->size());
  return 0;
}
