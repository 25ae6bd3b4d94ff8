// The bridge between hosts at the ends of real cables.
#include "platform/kvbridge/record_header.h"
#include "platform/kvbridged/modules.h"
#include "platform/kvbridged/port_socket.h"
#include "platform/kvbridged/tap.h"
#include "tests/kvbridged/cables.h"
#include "tests/kvbridged/frames.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <future>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>

namespace {

using namespace kvbridged;

constexpr unsigned char padi = 0x09, pado = 0x07, padr = 0x19, pads = 0x65;
const mac_address client = host_address(1), client2 = host_address(2), server = host_address(9),
                  server2 = host_address(10);
const std::vector<std::string> two_and_two{"1,subscriber,line1", "2,subscriber,line2", "9,network,up1",
                                           "10,network,up2"};

class BridgeOnCables : public testing::Test {
protected:
  void SetUp() override
  {
    if (const std::string why = network_enter(); !why.empty())
      GTEST_SKIP() << why;
  }
};

frame_bytes packet(const mac_address& to, const mac_address& from, std::vector<uint16_t> tags = {}, size_t size = 60)
{
  frame_bytes frame = frame_head(to, from, tags, 0x88b5);
  frame.resize(size);
  return frame;
}

TEST_F(BridgeOnCables, NothingPassesTheAgentBehindTags)
{
  cabled_bridge node("br0", {"1,subscriber,line1", "9,network,up1"});
  const host line("hline1"), uplink("hup1");
  std::vector<std::vector<uint16_t>> stacks;
  for (const uint16_t type : std::initializer_list<uint16_t>{0x8100, 0x88a8, 0x9100, 0x9200, 0x9300})
    for (size_t depth = 0; depth <= 6; ++depth)
      stacks.emplace_back(depth, type);
  std::atomic<int> diverted = 0;
  node.agent = [&](frame_bytes& record) { return ++diverted, record.size() == kernel_header::size + 99; };
  node.start();
  for (const auto& tags : stacks)
    line.send(discovery_frame(padi, everybody, client, 100, tags));
  line.send(discovery_frame(padi, everybody, client, 99));
  EXPECT_EQ(uplink.receive().size(), 99u);
  EXPECT_TRUE(uplink.receive(false).empty());
  line.send(packet(everybody, client, std::vector<uint16_t>(5, 0x8100)));
  line.send(packet(everybody, client, std::vector<uint16_t>(4, 0x9100), 61));
  EXPECT_EQ(uplink.receive().size(), 61u);
  node.stop();
  EXPECT_EQ(diverted, 1 + 5 + 4 + 4);
  EXPECT_EQ(node.count("to agent"), diverted);
  EXPECT_EQ(node.count("from agent"), 1);
  EXPECT_EQ(node.count("hidden"), 3 * 6 + 2 * 2 + 1);
}

// The agent's buffer holds records of 1,606 bytes here; what is larger does not reach it.
TEST_F(BridgeOnCables, ARequestOfAnySizeArrivesWholeOrIsAnswered)
{
  cabled_bridge node("br0,mtu=1500", {"1,subscriber,line1", "9,network,up1"}, 1700);
  const host line("hline1"), uplink("hup1");
  std::atomic<size_t> largest = 0;
  node.agent = [&](frame_bytes& record) {
    return largest = std::max<size_t>(largest, record.size()), record.size() <= 1606;
  };
  node.start();
  EXPECT_TRUE(run("ip link add mng0 address 02:00:00:00:00:77 type veth peer name other"));
  for (size_t size = 1400; size <= 1600; ++size) {
    const unsigned char code = size % 2 ? padi : padr;
    const frame_bytes request = discovery_frame(code, everybody, client, size);
    line.send(request);
    if (size < 1500) {
      ASSERT_EQ(uplink.receive(), request) << size;
      continue;
    }
    frame_bytes expected = discovery_frame(code == padi ? pado : pads, client, host_address(0x77));
    const unsigned char payload[] = {0, 4, 2, 3, 0, 0};
    std::fill(std::copy(std::begin(payload), std::end(payload), expected.begin() + 18), expected.end(), 0xff);
    ASSERT_EQ(line.receive(), expected) << size;
  }
  uplink.send(discovery_frame(pado, client, server, 1600));
  uplink.send(discovery_frame(pado, client, server));
  EXPECT_EQ(line.receive().size(), 60u);
  node.stop();
  EXPECT_EQ(largest, 1606u);
  EXPECT_EQ(node.count("answered"), 101);
  EXPECT_EQ(node.count("too large"), 1);
}

TEST_F(BridgeOnCables, GroupsAndUnknownGoToEveryNetworkPortAndTheRestWhereItIs)
{
  cabled_bridge node("br0", two_and_two);
  const host line1("hline1"), line2("hline2"), up1("hup1"), up2("hup2");
  std::atomic<int> diverted = 0;
  node.agent = [&](frame_bytes&) { return ++diverted, true; };
  node.start();
  const auto reaches = [](const frame_bytes& frame, const host& from, const std::vector<const host*>& hosts) {
    from.send(frame);
    for (const host* to : hosts)
      EXPECT_EQ(to->receive(), frame);
  };
  reaches(discovery_frame(padi, everybody, client), line1, {&up1, &up2});
  reaches(packet(everybody, client2), line2, {&up1, &up2});
  reaches(discovery_frame(padr, server2, client), line1, {&up1, &up2});
  reaches(packet(client2, client), line1, {&up1, &up2});
  reaches(discovery_frame(pado, client, server2), up2, {&line1});
  reaches(discovery_frame(padr, server2, client), line1, {&up2});
  reaches(packet(server2, client2), line2, {&up2});
  reaches(packet(everybody, server), up1, {&line1, &line2});
  // By a second uplink on the same segment, what a subscriber sent to all comes back: not to the subscriber, and the
  // subscriber is still where it was.
  reaches(packet(everybody, client), up2, {&line2});
  reaches(discovery_frame(pado, client, server2), up2, {&line1});
  up1.send(packet(server2, server));
  reaches(packet(client, server), up1, {&line1});
  node.stop();
  for (const host* one : {&line1, &line2, &up1, &up2})
    EXPECT_TRUE(one->receive(false).empty());
  EXPECT_EQ(diverted, 5);
  EXPECT_EQ(node.count("forwarded"), 11);
  EXPECT_EQ(node.count("dropped"), 1);  // from one network port to the other
}

TEST_F(BridgeOnCables, AnAddressStaysWithWhoHasIt)
{
  cabled_bridge node("br0", {"1,subscriber,line1,addresses=4", "2,subscriber,line2", "9,network,up1"});
  const host line1("hline1"), line2("hline2"), up1("hup1");
  node.start();
  line1.send(packet(everybody, client));
  EXPECT_FALSE(up1.receive().empty());
  up1.send(packet(client, server));
  EXPECT_EQ(line1.receive(), packet(client, server));
  for (const mac_address& stolen : {client, server, everybody})
    line2.send(packet(everybody, stolen));
  line2.send(packet(everybody, client2, {}, 61));
  EXPECT_EQ(up1.receive().size(), 61u);
  line1.send(packet(server, client));
  EXPECT_EQ(up1.receive(), packet(server, client));
  up1.send(packet(client, server));
  EXPECT_EQ(line1.receive(), packet(client, server));
  for (unsigned char other = 20; other < 40; ++other) {  // more than the line's share
    line1.send(packet(server, host_address(other)));
    EXPECT_FALSE(up1.receive().empty());
  }
  up1.send(packet(host_address(30), server));  // who is forgotten for the next
  for (const auto& [line, address] : {std::pair(&line1, client), std::pair(&line2, client2)}) {
    up1.send(packet(address, server));
    EXPECT_EQ(line->receive(), packet(address, server));
  }
  node.stop();
  EXPECT_TRUE(line2.receive(false).empty());
  EXPECT_EQ(node.count("not theirs"), 2);
  EXPECT_EQ(node.count("not whole"), 1);
  EXPECT_EQ(node.count("dropped"), 4);
}

TEST_F(BridgeOnCables, WhatADeviceRefusesIsToldOnceAndCounted)
{
  cabled_bridge node("br0", {"1,subscriber,line1", "9,network,up1"}, 2000);
  const host line("hline1"), uplink("hup1");
  EXPECT_TRUE(run("ip link set up1 mtu 1500"));
  node.start();
  testing::internal::CaptureStderr();
  for (const size_t size : {1515, 1600, 1514})
    line.send(packet(everybody, client, {}, size));
  EXPECT_EQ(uplink.receive().size(), 1514u);
  node.stop();
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "kvbridged: br0: port 9 (up1) does not take a frame of 1515 bytes: larger than its MTU\n");
  EXPECT_EQ(node.count("refused by device"), 2);
  EXPECT_EQ(node.count("dropped"), 2);
}

TEST_F(BridgeOnCables, APseudoDeviceHasItsBridgesMtu)
{
  if (access("/dev/net/tun", R_OK | W_OK) != 0)
    GTEST_SKIP() << "needs TAP devices";
  const auto mtu_of = [](const char* name) {
    const descriptor sock(socket(AF_INET, SOCK_DGRAM, 0));
    ifreq request{};
    std::strcpy(request.ifr_name, name);
    return ioctl(sock.get(), SIOCGIFMTU, &request) == 0 ? request.ifr_mtu : -1;
  };
  loop events;
  kvbridged::modules all({bridge_parse("br0"), bridge_parse("br1,mtu=1600")}, events);
  EXPECT_EQ(all.device_create("br0_pppoe"), 0);
  EXPECT_EQ(all.device_create("br1_pppoe"), 0);
  EXPECT_EQ(mtu_of("br0_pppoe"), 1500);
  EXPECT_EQ(mtu_of("br1_pppoe"), 1600);
  EXPECT_TRUE(run("ip link set br1_pppoe mtu 1707"));  // as an agent did that is gone
  EXPECT_EQ(all.device_create("br1_pppoe"), EEXIST);
  EXPECT_EQ(mtu_of("br1_pppoe"), 1600);
}

// From the start, and when the device is deleted under it: its number may be another file's by then.
TEST_F(BridgeOnCables, WhileAFilterIsInForceWithoutItsDeviceDiscoveryIsHeldBack)
{
  const cabled_bridge cables("brx", {"1,subscriber,line1", "9,network,up1"});
  const host line("hline1"), uplink("hup1");
  std::vector<bridge_settings> settings{bridge_parse("br0")};
  port_parse("br0,1,subscriber,line1", settings);
  port_parse("br0,9,network,up1", settings);
  for (const bool was_there : {false, true}) {
    loop events;
    kvbridged::modules all(settings, events, was_there ? filter_owners{} : filter_owners{{"br0", 1}});
    if (was_there) {
      EXPECT_EQ(all.device_create("br0_pppoe"), 0);
      EXPECT_EQ(all.filter_attach(0, "pppoe", "br0_pppoe", 1), 0);
      EXPECT_TRUE(run("ip link del br0_pppoe"));
    }
    const descriptor next(eventfd(1, 0)), stop(eventfd(0, 0));
    int other[2];
    std::promise<void> taken;
    events.watch(next.get(), [&] {
      events.forget(next.get());
      EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, other), 0);
      taken.set_value();
    });
    events.watch(stop.get(), [&] { events.end(); });
    std::thread running([&] { events.run(); });
    taken.get_future().wait();
    line.send(discovery_frame(padi, everybody, client));
    line.send(packet(everybody, client));
    EXPECT_EQ(uplink.receive(), packet(everybody, client));
    eventfd_write(stop.get(), 1);
    running.join();
    EXPECT_NE(all.statistics().find("forwarded 1, dropped 1,"), std::string::npos) << all.statistics();
    const descriptor ends[] = {descriptor(other[0]), descriptor(other[1])};
    for (const descriptor& end : ends) {
      char byte;
      EXPECT_LT(recv(end.get(), &byte, 1, MSG_DONTWAIT), 0);
    }
  }
}

// Behind a tag, which the kernel takes off at each end of a cable: places count from the frame's start.
TEST_F(BridgeOnCables, ChecksumAndSegmentsAreLeftToDoAtTheRightPlaces)
{
  constexpr size_t payload = 5000;
  cabled_bridge node("br0", {"1,subscriber,line1", "9,network,up1"});
  const host line("hline1", true), uplink("hup1", true);
  node.start();
  offload left{.flags = offload::needs_checksum,
               .segments = 1,  // TCP over IPv4
               .header_length = 18 + 20 + 20,
               .segment_size = 1000,
               .checksum_start = 18 + 20,
               .checksum_offset = 16};
  const auto* bytes = reinterpret_cast<const unsigned char*>(&left);
  frame_bytes sent(bytes, bytes + sizeof left);
  const frame_bytes head = frame_head(server, client, {0x8100}, 0x0800);
  sent.insert(sent.end(), head.begin(), head.end());
  for (const unsigned word : {0x4500u, unsigned{40 + payload}, 0u, 0u, 0x4006u, 0u, 0x0a00u, 1u, 0x0a00u, 2u})
    word_add(sent, word);
  for (const unsigned word : {7u, 7u, 0u, 0u, 0u, 0u, 0x5010u, 0xffffu, 0u, 0u})
    word_add(sent, word);
  sent.resize(sent.size() + payload, 'x');
  line.send(sent);
  const frame_bytes came = uplink.receive();
  ASSERT_EQ(came.size(), sent.size() - tag_size);
  std::memcpy(&left, came.data(), sizeof left);
  EXPECT_EQ(left.flags, offload::needs_checksum);
  EXPECT_EQ(left.segments, 1);
  EXPECT_EQ(left.segment_size, 1000);
  EXPECT_EQ(left.checksum_start, 14 + 20);
  EXPECT_EQ(left.checksum_offset, 16);
}

// Runs a call in a network of its own that gets one end of a cable with an address.
class computer {
public:
  computer(const std::string& interface, const std::string& address)
  {
    const descriptor former(open("/proc/thread-self/ns/net", O_RDONLY));
    EXPECT_EQ(network_enter(), "");
    network_ = descriptor(open("/proc/thread-self/ns/net", O_RDONLY));
    setns(former.get(), CLONE_NEWNET);
    EXPECT_TRUE(run("ip link set " + interface + " netns /proc/self/fd/" + std::to_string(network_.get())));
    at_home([&] {
      EXPECT_TRUE(run("ip addr add " + address + "/24 dev " + interface));
      link_up(interface);
    });
  }
  template <typename F>
  void at_home(const F& call) const
  {
    const descriptor former(open("/proc/thread-self/ns/net", O_RDONLY));
    setns(network_.get(), CLONE_NEWNET);
    call();
    setns(former.get(), CLONE_NEWNET);
  }
  descriptor tcp() const
  {
    int fd = -1;
    at_home([&] { fd = socket(AF_INET, SOCK_STREAM, 0); });
    const timeval patience{5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    return descriptor(fd);
  }

private:
  descriptor network_;
};

// Between Linux hosts, who leave checksums and segments to a device that does not exist.
TEST_F(BridgeOnCables, HostsTalkTcp)
{
  constexpr size_t size = 4'000'000;
  cabled_bridge node("br0", {"1,subscriber,line1", "9,network,up1"});
  const computer near("hline1", "10.7.0.1"), far("hup1", "10.7.0.2");
  node.start();
  const descriptor listener = far.tcp(), calling = near.tcp();
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(7000);
  inet_pton(AF_INET, "10.7.0.2", &address.sin_addr);
  ASSERT_EQ(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(listener.get(), 1), 0);
  ASSERT_EQ(connect(calling.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const descriptor called(accept(listener.get(), nullptr, nullptr));
  std::string text(size, '\0');
  for (size_t i = 0; i < size; ++i)
    text[i] = static_cast<char>(i * 31 >> 5);
  std::thread sender(
      [&] { EXPECT_EQ(send(calling.get(), text.data(), size, MSG_NOSIGNAL), static_cast<ssize_t>(size)); });
  std::string came(size, '\0');
  EXPECT_EQ(recv(called.get(), came.data(), size, MSG_WAITALL), static_cast<ssize_t>(size));
  sender.join();
  EXPECT_TRUE(came == text);
  node.stop();
  EXPECT_LT(node.count("forwarded"), static_cast<long>(size / 1460)) << "large segments were not used";
}

}  // namespace
