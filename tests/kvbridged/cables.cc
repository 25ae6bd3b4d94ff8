#include "tests/kvbridged/cables.h"

#include <arpa/inet.h>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

using namespace kvbridged;

std::string network_enter()
{
  if (geteuid() != 0 || unshare(CLONE_NEWNET) != 0)
    return "needs root and network namespaces";
  for (const char* which : {"default", "all"})
    std::ofstream(std::string("/proc/sys/net/ipv6/conf/") + which + "/disable_ipv6") << "1\n";
  return run("ip link set lo up") ? "" : "needs ip";
}

bool run(const std::string& command)
{
  return std::system(command.c_str()) == 0;
}

void link_up(const std::string& interface)
{
  const std::string command = "ip link set " + interface + " up";
  EXPECT_TRUE(run(command));
  const descriptor sock(socket(AF_INET, SOCK_DGRAM, 0));
  ifreq request{};
  std::strcpy(request.ifr_name, interface.c_str());
  for (int tries = 0; tries < 10'000 && !(request.ifr_flags & IFF_RUNNING); ++tries) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ioctl(sock.get(), SIOCGIFFLAGS, &request);
  }
  EXPECT_TRUE(run(command));  // waits until the kernel has done with the first
}

host::host(const std::string& interface, bool offload) : socket_(::socket(AF_PACKET, SOCK_RAW, 0))
{
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
  const int on = 1;
  if (offload)
    setsockopt(socket_.get(), SOL_PACKET, PACKET_VNET_HDR, &on, sizeof on);
  setsockopt(socket_.get(), SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on);
  EXPECT_EQ(bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0) << interface;
}

void host::send(frame_view frame) const
{
  EXPECT_EQ(::send(socket_.get(), frame.data(), frame.size(), 0), static_cast<ssize_t>(frame.size()));
}

frame_bytes host::receive(bool waiting) const
{
  pollfd wait{socket_.get(), POLLIN, 0};
  if (poll(&wait, 1, waiting ? 10'000 : 0) != 1)
    return {};
  frame_bytes frame(65536);
  const ssize_t size = recv(socket_.get(), frame.data(), frame.size(), 0);
  frame.resize(size > 0 ? static_cast<size_t>(size) : 0);
  return frame;
}

void cable_make(const std::string& name, int mtu)
{
  const std::string with_mtu = " mtu " + std::to_string(mtu);
  EXPECT_TRUE(run("ip link add " + name + with_mtu + " type veth peer name h" + name + with_mtu + " && ip link set h" +
                  name + " up"));
  link_up(name);
  link_up("h" + name);
}

void kernel_bridge_cable(const std::string& bridge, const std::vector<std::string>& members)
{
  EXPECT_TRUE(run("ip link add " + bridge + " type bridge && ip link set " + bridge + " up"));
  for (const std::string& member : members) {
    cable_make(member);
    EXPECT_TRUE(run("ip link set " + member + " master " + bridge));
  }
}

cabled_bridge::cabled_bridge(const std::string& bridge, const std::vector<std::string>& ports, int cable_mtu)
{
  std::vector<bridge_settings> settings{bridge_parse(bridge)};
  for (const std::string& port : ports) {
    port_parse(settings[0].name + "," + port, settings);
    cable_make(settings[0].ports.back().interface, cable_mtu);
  }
  bridge_ = bridge_make(settings[0], events_);
  agent_make();
}

cabled_bridge::cabled_bridge(const bridge_settings& settings) : bridge_(bridge_make(settings, events_))
{
  agent_make();
}

cabled_bridge::~cabled_bridge()
{
  stop();
}

void cabled_bridge::agent_make()
{
  int ends[2];
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends), 0);
  bridge_end_ = descriptor(ends[0]);
  agent_end_ = descriptor(ends[1]);
  stop_ = descriptor(eventfd(0, 0));
}

void cabled_bridge::start()
{
  bridge_->attach(bridge_end_.get());
  events_.watch(agent_end_.get(), [this] { agent_read(); });
  events_.watch(stop_.get(), [this] { events_.end(); });
  thread_ = std::thread([this] { events_.run(); });
}

void cabled_bridge::agent_read()
{
  frame_bytes record(65536);
  for (ssize_t size; (size = recv(agent_end_.get(), record.data(), record.size(), 0)) > 0; record.resize(65536)) {
    record.resize(static_cast<size_t>(size));
    if (agent(record))
      bridge_->from_agent(record);
  }
}

void cabled_bridge::stop()
{
  if (!thread_.joinable())
    return;
  eventfd_write(stop_.get(), 1);
  thread_.join();
}

long cabled_bridge::count(const std::string& name) const
{
  const std::string line = statistics();
  const size_t at = line.find(" " + name + " ");
  return at == std::string::npos ? -1 : std::stol(line.substr(at + name.size() + 2));
}
