// Bridge instances on a kernel in memory: the worker, deletion, a device that goes away. Creation is the model's.
#include "pppoeia/kernel/device_watch.h"
#include "pppoeia/kernel/devices.h"
#include "pppoeia/kernel/receive_ring.h"
#include "pppoeia/log.h"
#include "pppoeia/pppoeia.h"
#include "pppoeia/records.h"
#include "pppoeia/status/bridge_status.h"
#include "pppoeia/text.h"
#include "tests/support/fake_kernel.h"
#include "tests/support/files.h"
#include "tests/support/records_fixture.h"
#include "tests/support/syslog_capture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iterator>
#include <thread>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

// Lines since the last call, without those on the worker's priority: they stand anywhere, and depend on the machine.
std::vector<std::string> messages()
{
  std::vector<std::string> lines = syslog_take_texts();
  std::erase_if(lines, [](const std::string& line) { return line.find("riority") != std::string::npos; });
  return lines;
}

class BridgeInstance : public testing::Test {
protected:
  BridgeInstance()
  {
    pppoeia_frame_adjust = 106;
    EXPECT_EQ(pppoeia_init(), 0);
    messages();
  }
  ~BridgeInstance() override
  {
    if (pppoeia_globals.load())
      pppoeia_fini();
    pppoeia_log_level = log_info;
    EXPECT_EQ(kernel.open_descriptors(), 0u);
    EXPECT_THAT(kernel.devices, IsEmpty());
    syslog_take();
  }
  // "br0" with a port that subscribers stand at.
  static void add_with_port()
  {
    ASSERT_EQ(pppoeia_bridge_add("br0", 4), 0);
    const pppoeia_port_info info{.parent_id = 0, .type = "eth", .kind = 1, .location = {}};
    EXPECT_EQ(pppoeia_port_add("br0", 1, "dev1", "port1", &info), 0);
    EXPECT_EQ(pppoeia_port_state_set("br0", 1, 1), 0);
  }
  static uint32_t padis()
  {
    pppoeia_stats stats{};
    EXPECT_EQ(pppoeia_bridge_stats_get("br0", &stats), 0);
    return stats.padi;
  }
  // An agent that has just been initialised, but for the given kernel.
  template <typename Body>
  static void on_fresh_kernel(Body body)
  {
    pppoeia_fini();
    {
      fake_kernel fresh;
      EXPECT_EQ(pppoeia_init(), 0);
      body(fresh);
      pppoeia_fini();
    }
    EXPECT_EQ(pppoeia_init(), 0);
  }
  // The device of "br0" goes away, and neither kernel module answers.
  void lose_modules()
  {
    messages();
    kernel.fail_from_now({{"open:/proc/net/kvbridge/br0/bridge", ENOTCONN}, {"open:/proc/net/mng/config", ENOTCONN}});
    kernel.vanish("br0_pppoe");
    EXPECT_TRUE(logged("<br0> Pseudo device 'br0_pppoe' is gone."));
  }
  // Whether that line comes within some seconds.
  bool logged(const std::string& line)
  {
    for (int tries = 0; tries < 2000 && std::ranges::count(heard, line) == 0; ++tries) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      std::ranges::copy(messages(), std::back_inserter(heard));
    }
    return std::ranges::count(heard, line) == 1;
  }
  fake_kernel kernel;
  std::vector<std::string> heard;  // while logged() waited
};

// As in a process whose standard input was closed.
TEST_F(BridgeInstance, DescriptorZeroIsOneAsAnyOther)
{
  for (const char* step : {"open:/proc/net/mng/config", "open:/proc/net/kvbridge/config",
                           "open:/proc/net/kvbridge/br0/bridge", "datagram_socket", "packet_socket"})
    on_fresh_kernel([&](fake_kernel& fresh) {
      fresh.kvmng_version = 2;
      fresh.at_zero = step;
      messages();
      pppoeia_init();
      EXPECT_THAT(messages(), Contains("Kernel module 'kvmng' version mismatch (2 instead of 3)."));
      add_with_port();
      unsigned char mac[6];
      EXPECT_EQ(pppoeia_get_local_mac(mac), 0) << step;
      EXPECT_EQ(pppoeia_bridge_del("br0"), 0) << step;
      EXPECT_EQ(fresh.open_descriptors(), 0u) << step;
    });
}

TEST_F(BridgeInstance, WorkerTagsAndDeletionIsPromptAndLeavesNothing)
{
  // The first thread of a process may bring a helper of the thread library along.
  ASSERT_EQ(pppoeia_bridge_add("br0", 4), 0);
  ASSERT_EQ(pppoeia_bridge_del("br0"), 0);
  kernel.queue = {1, 5};
  const auto threads = entries("/proc/self/task");
  for (int round = 0; round < 20; ++round) {
    const auto begun = std::chrono::steady_clock::now();
    add_with_port();
    const bridge_status& status = *bridge_find("br0")->status;
    const int wire = kernel.wire("br0_pppoe");
    const byte_string record = test_frame{}.build();
    for (int i = 0; i < 3; ++i)
      wire_send(wire, record);
    for (int i = 0; i < 3; ++i)
      EXPECT_GT(wire_receive(wire).size(), record.size());
    EXPECT_EQ(padis(), 3u);
    EXPECT_EQ(status.records.get(), 3u);
    EXPECT_EQ(status.queue_depth.get(), 5u);
    EXPECT_GT(status.alive_ns.get(), 0u);
    const auto seconds = (std::chrono::steady_clock::now() - begun) / std::chrono::seconds(1);
    EXPECT_LE(status.lost.get(), static_cast<uint64_t>(1 + seconds)) << "one is told each time";
    ASSERT_EQ(pppoeia_bridge_del("br0"), 0);
  }
  EXPECT_EQ(entries("/proc/self/task"), threads);
  EXPECT_EQ(pppoeia_bridge_del("br0"), -ENOENT);
}

TEST_F(BridgeInstance, WorkerIsAStepMoreUrgentThanWhoMadeIt)
{
  const sched_param usual{};
  const sched_param urgent{.sched_priority = 5};
  if (pthread_setschedparam(pthread_self(), SCHED_RR, &urgent) != 0)
    GTEST_SKIP() << "needs the right to be scheduled in real time";
  EXPECT_EQ(pppoeia_bridge_add("br0", 4), 0);
  pthread_setschedparam(pthread_self(), SCHED_OTHER, &usual);
  sched_param has{};
  for (int tries = 0, policy; tries < 2000 && has.sched_priority != 6; ++tries) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    pthread_getschedparam(bridge_find("br0")->thread, &policy, &has);
  }
  EXPECT_EQ(has.sched_priority, 6);
}

TEST_F(BridgeInstance, RecordsThatTheDeviceRefusesAreToldOnce)
{
  kernel.failing = {{"send@1", ENOBUFS}, {"send@2", EMSGSIZE}, {"send@4", EMSGSIZE}};
  ASSERT_EQ(pppoeia_bridge_add("br0", 4), 0);
  ASSERT_EQ(pppoeia_bridge_state_set("br0", 0), 0);  // all go back as they came
  messages();
  const int wire = kernel.wire("br0_pppoe");
  for (uint16_t number = 1; number <= 5; ++number)
    wire_send(wire, test_frame{.session_id = number}.build());
  EXPECT_EQ(wire_receive(wire), test_frame{.session_id = 3}.build());
  EXPECT_EQ(wire_receive(wire), test_frame{.session_id = 5}.build());
  EXPECT_EQ(padis(), 0u);  // and the worker is through with them
  // When they come as a batch, the last one's reason is told.
  EXPECT_THAT(messages(), ElementsAre(testing::StartsWith("<br0> Pseudo device 'br0_pppoe' refuses records: ")));
  EXPECT_EQ(bridge_find("br0")->status->send_failures.get(), 3u);
}

TEST(RefusalLog, TellsHowManyWereRefusedWhenRecordsGoAgain)
{
  test_bridge bridge;
  text_copy(bridge->dev_name, "br0_pppoe");
  refusal_log eager(*bridge, std::chrono::seconds(0)), patient(*bridge, std::chrono::hours(1));
  syslog_take();
  for (const send_refusals& batch : {send_refusals{}, {2, EMSGSIZE, 1600}, {1, ENOBUFS, 200}, {}, {}, {1, ENOBUFS, 60}})
    eager.sent(batch);
  EXPECT_THAT(syslog_take_texts(),
              ElementsAre("<br0> Pseudo device 'br0_pppoe' refuses records: Message too long (1600 bytes).",
                          "<br0> Pseudo device 'br0_pppoe' takes records again, 3 were refused.",
                          "<br0> Pseudo device 'br0_pppoe' refuses records: No buffer space available (60 bytes)."));
  for (int flap = 0; flap < 100; ++flap) {
    patient.sent({1, ENOBUFS, 60});
    patient.sent({});
  }
  EXPECT_EQ(syslog_take().size(), 1u);
}

// As when the process that plays the kernel modules is killed, and another one is started after a while.
TEST_F(BridgeInstance, DeviceThatVanishesIsMadeAnewAndServedAsBefore)
{
  const auto serves = [&] {
    const byte_string record = test_frame{}.build();
    wire_send(kernel.wire("br0_pppoe"), record);
    return wire_receive(kernel.wire("br0_pppoe")).size() > record.size();
  };
  add_with_port();
  EXPECT_TRUE(serves());
  const size_t descriptors = kernel.open_descriptors();
  lose_modules();
  // The modules come back one step at a time.
  for (const char* step : {"control:0x40046d00", "link_flags_set", "control:0x40047ac8", "bind_packet"}) {
    const int before = kernel.tried(step);
    kernel.fail_from_now({{step, EIO}});
    for (int tries = 0; tries < 2000 && kernel.tried(step) == before; ++tries)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_GT(kernel.tried(step), before) << step;
  }
  kernel.fail_from_now({}, "open:/proc/net/mng/config");
  EXPECT_TRUE(logged("<br0> Pseudo device 'br0_pppoe' is back."));
  EXPECT_EQ(heard.size(), 2u) << testing::PrintToString(heard);
  EXPECT_TRUE(serves());
  EXPECT_EQ(kernel.open_descriptors(), descriptors);
  EXPECT_EQ(padis(), 2u);
}

TEST_F(BridgeInstance, WhileItsDeviceIsAwayABridgeIsDeletedAsEver)
{
  ASSERT_EQ(pppoeia_bridge_add("br0", 4), 0);
  lose_modules();
  EXPECT_EQ(pppoeia_bridge_del("br0"), 0);
  EXPECT_THAT(messages(), ElementsAre("<br0> Unable to open '/proc/net/mng/config'."));
}

// Without a worker, one wait after another.
TEST_F(BridgeInstance, ADeviceIsLookedAfterNowAndThen)
{
  test_bridge bridge;
  text_copy(bridge->dev_name, "br0_pppoe");
  bridge->mtu = kernel.mtu;
  bridge->stag_ethertype = kernel.stag_ethertype;
  bridge->sock = ::kernel->packet_socket();
  bridge->ctl_fd = ::kernel->open_control("/proc/net/kvbridge/br0/bridge");
  kernel.devices.insert("br0_pppoe");
  device_watch watch(*bridge);
  const auto looks_in = [&](int waits) {
    const int before = kernel.tried("link_index");
    while (waits-- > 0)
      watch.waited();
    return kernel.tried("link_index") - before;
  };
  const auto bound_and_attached = [&] {
    return std::pair(kernel.tried("bind_packet"), kernel.tried("control:0x40047ac8"));
  };
  const std::string gone = "<br0> Pseudo device 'br0_pppoe' is gone.";
  const std::string back = "<br0> Pseudo device 'br0_pppoe' is back.";

  for (const int error : {0, EAGAIN, EINTR, ENOBUFS})
    watch.failed(error);
  EXPECT_EQ(looks_in(99), 0);
  EXPECT_EQ(looks_in(1), 1);
  EXPECT_EQ(looks_in(100), 1);
  EXPECT_EQ(bound_and_attached(), std::pair(0, 0));
  EXPECT_THAT(messages(), IsEmpty());
  for (const int error : {ENETDOWN, ENODEV, ENXIO}) {
    watch.failed(error);
    watch.failed(error);
    EXPECT_THAT(messages(), ElementsAre(gone)) << error;
    watch.received();
  }

  watch.failed(ENETDOWN);  // and is up again: the same one
  messages();
  looks_in(10);
  EXPECT_EQ(bound_and_attached(), std::pair(1, 0));
  EXPECT_EQ(looks_in(9), 0);
  kernel.vanish("br0_pppoe");
  EXPECT_EQ(looks_in(1), 2) << "before and after it was made anew";
  EXPECT_EQ(bound_and_attached(), std::pair(2, 1));
  EXPECT_THAT(messages(), ElementsAre(back));
  for (const auto& change : {+[](fake_kernel& now) { now.stag_ethertype = 0x9100; },
                             +[](fake_kernel& now) { now.stag_ethertype = 0x88a8, now.mtu = 1400; }}) {
    kernel.vanish("br0_pppoe");  // and nobody has told
    change(kernel);
    EXPECT_EQ(looks_in(100), 2);
    EXPECT_THAT(
        messages(),
        ElementsAre(gone, back, "<br0> MTU or S-Tag EtherType have changed: delete the bridge and add it again."));
  }
  ::kernel->close(bridge->sock);
  ::kernel->close(bridge->ctl_fd);
  kernel.vanish("br0_pppoe");
}

TEST(ReceiveRing, IsOfWholeBlocksOrOfTheUsualSize)
{
  const std::pair<const char*, unsigned> cases[] = {{nullptr, 1024}, {"", 1024},     {"4096", 4096},   {"64", 64},
                                                    {"63", 1024},    {"200", 192},   {"65536", 65536}, {"65537", 1024},
                                                    {"-64", 1024},   {"4096k", 1024}};
  for (const auto& [wanted, kib] : cases)
    EXPECT_EQ(receive_ring::size_from(wanted), kib * 1024) << (wanted ? wanted : "nothing");
}

TEST(AgentInit, AgainPutsFormerBridgesOutOfReach)
{
  fake_kernel kernel;
  ASSERT_EQ(pppoeia_init(), 0);
  ASSERT_EQ(pppoeia_bridge_add("br0", 4), 0);
  pppoeia_bridge* former = bridge_find("br0");
  syslog_take();
  EXPECT_EQ(pppoeia_init(), 0);
  EXPECT_THAT(syslog_take_texts(), Contains("Already initialized."));
  EXPECT_FALSE(bridge_find("br0"));
  EXPECT_EQ(pppoeia_bridge_add("br0", 4), 0);  // its device is taken over
  EXPECT_EQ(pppoeia_fini(), 0);
  // The former bridge lives on; end its worker here, so that it does not outlive the test's kernel.
  former->stop = 1;
  pthread_join(former->thread, nullptr);
}

}  // namespace
