// The bridge between hosts at the ends of real cables.
#include "platform/kvbridge/record_header.h"
#include "platform/kvbridged/modules.h"
#include "platform/kvbridged/port_socket.h"
#include "platform/kvbridged/tap.h"
#include "tests/kvbridged/cables.h"
#include "tests/kvbridged/frames.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <future>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <thread>

namespace {

using namespace kvbridged;

constexpr unsigned char padi = 0x09, pado = 0x07, padr = 0x19, pads = 0x65;
const mac_address client{0x02, 0x11, 0x22, 0x33, 0x44, 0x55}, client2 = host_address(2), server = host_address(9),
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
  node.agent = [&](frame_bytes& record) {
    if (record[kernel_header::size + 15] == 0x42) {  // answered
      record[kernel_header::output_device] = 0;
      std::copy_n(&record[kernel_header::size + 6], 6, &record[kernel_header::size]);
    }
    return ++diverted, true;
  };
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
  line2.send(discovery_frame(0x42, everybody, client2));
  EXPECT_EQ(line2.receive(), discovery_frame(0x42, client2, client2));
  up1.send(discovery_frame(pado, everybody, server));
  up1.send(discovery_frame(pado, host_address(77), server));
  up1.send(packet(server2, server));
  reaches(packet(client, server), up1, {&line1});
  node.stop();
  for (const host* one : {&line1, &line2, &up1, &up2})
    EXPECT_TRUE(one->receive(false).empty());
  EXPECT_EQ(diverted, 6);
  EXPECT_EQ(node.count("forwarded"), 12);
  EXPECT_EQ(node.count("dropped"), 3);  // to a group, to nobody, from one network port to the other
}

TEST_F(BridgeOnCables, AnAddressStaysWithWhoHasIt)
{
  cabled_bridge node("br0", {"1,subscriber,line1,addresses=4", "2,subscriber,line2", "9,network,up1"});
  const host line1("hline1"), line2("hline2"), up1("hup1");
  testing::internal::CaptureStderr();
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
  EXPECT_EQ(node.statistics(), "br0: to agent 0, from agent 0, forwarded 27, dropped 4, answered 0, too large 0, "
                               "hidden 0, not theirs 2, not whole 1, refused by device 0");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "kvbridged: br0: port 2 (line2) sends from 02:11:22:33:44:55, an address of another port; such frames are "
            "dropped\n");
}

TEST_F(BridgeOnCables, APortThatIsBusyLetsTheOthersHaveTheirTurn)
{
  cabled_bridge node("br0", {"1,subscriber,line1", "2,subscriber,line2", "9,network,up1"});
  const host line1("hline1"), line2("hline2"), uplink("hup1");
  for (int i = 0; i < 200; ++i)
    line1.send(packet(everybody, client));
  line2.send(packet(everybody, client2, {}, 61));
  node.start();
  size_t before = 0;
  while (uplink.receive().size() == 60)
    ++before;
  node.stop();
  EXPECT_LE(before, 64u);
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
  const auto shows = [](const std::string& name, const std::string& what) {
    return run("ip link show " + name + " | grep -q '" + what + " '");
  };
  EXPECT_TRUE(run("echo 0 >/proc/sys/net/ipv6/conf/default/disable_ipv6"));
  loop events;
  kvbridged::modules all({bridge_parse("br0"), bridge_parse("tencharact,mtu=1600")}, events);
  EXPECT_EQ(all.device_create("br0_pppoe"), 0);
  EXPECT_EQ(all.device_create("tencharact_pppo"), 0);
  EXPECT_TRUE(shows("br0_pppoe", "mtu 1500") && shows("tencharact_pppo", "mtu 1600"));
  EXPECT_TRUE(run("ip link show br0_pppoe | grep -q 'qlen 10000$'"));
  EXPECT_TRUE(run("grep -q 1 /proc/sys/net/ipv6/conf/br0_pppoe/disable_ipv6"));
  EXPECT_TRUE(run("ip link set tencharact_pppo mtu 1707"));  // as an agent did that is gone
  EXPECT_EQ(all.device_create("tencharact_pppo"), EEXIST);
  EXPECT_TRUE(shows("tencharact_pppo", "mtu 1600"));
}

// From the start, and when the device is deleted under it: its number may be another file's by then. Without a filter
// it passes.
TEST_F(BridgeOnCables, WhileAFilterIsInForceWithoutItsDeviceDiscoveryIsHeldBack)
{
  const cabled_bridge cables("brx", {"1,subscriber,line1", "9,network,up1"});
  const host line("hline1"), uplink("hup1");
  std::vector<bridge_settings> settings{bridge_parse("br0")};
  port_parse("br0,1,subscriber,line1", settings);
  port_parse("br0,9,network,up1", settings);
  for (const std::string before : {"filter", "nothing", "device deleted", "device given up"}) {
    loop events;
    kvbridged::modules all(settings, events, before == "filter" ? filter_owners{{"br0", 1}} : filter_owners{});
    if (before.starts_with("device")) {
      EXPECT_EQ(all.device_create("br0_pppoe"), 0);
      EXPECT_EQ(all.filter_attach(0, "pppoe", "br0_pppoe", 1), 0);
      EXPECT_EQ(before == "device deleted" ? !run("ip link del br0_pppoe") : all.device_delete("br0_pppoe", 1), 0);
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
    const bool passes = before == "nothing" || before == "device given up";
    const frame_bytes request = discovery_frame(padi, everybody, client), session = packet(everybody, client);
    line.send(request);
    line.send(session);
    EXPECT_EQ(uplink.receive(), passes ? request : session);
    EXPECT_EQ(uplink.receive(passes), passes ? session : frame_bytes{});
    eventfd_write(stop.get(), 1);
    running.join();
    EXPECT_EQ(all.statistics(), std::string("br0: to agent 0, from agent 0, forwarded ") +
                                    (passes ? "2, dropped 0" : "1, dropped 1") +
                                    ", answered 0, too large 0, hidden 0, not theirs 0, not whole 0, refused by "
                                    "device 0" +
                                    (passes ? "\n" : ", discovery stopped\n"));
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

}  // namespace
