// The programs at a bridge's members: taken off by somebody else, refused, left behind, taken over, put away.
#include "platform/kvbridged/kernel/bpf/maps.h"
#include "tests/kvbridged/kernel_bridge_fixture.h"

#include <atomic>
#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <chrono>
#include <discovery_bpf.skel.h>
#include <linux/capability.h>
#include <map>
#include <net/if.h>
#include <thread>
#include <unistd.h>

namespace {

TEST_F(KernelBridge, ProgramsThatCannotBePutBackAreToldOnce)
{
  testing::internal::CaptureStderr();
  loop events;
  const auto node = bridge_make(settings_of(), events);
  EXPECT_TRUE(run("tc qdisc del dev line1 clsact && tc qdisc del dev br0_back clsact"));
  serve(events, [] { rights_drop({CAP_NET_ADMIN}); });
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "kvbridged: br0: no programs at line1: Operation not permitted\n");
}

// Whatever somebody takes off is back, and meanwhile nothing untreated reaches the network.
TEST_F(KernelBridge, ProgramsThatSomebodyTookOffAreBack)
{
  testing::internal::CaptureStderr();
  cabled_bridge node(settings_of());
  node.agent = treat;
  node.start();
  wire line("hline1"), uplink("hup9");
  const frame_bytes request = discovery_frame(padi, everybody, client);
  const char programs[] =
      "(tc filter show dev line1 ingress; tc filter show dev up9 egress) 2>&1 | grep -o '.*kvb_[a-z_]*'";
  const std::string before = said(programs);
  for (const std::string what :
       {"tc qdisc del dev line1 clsact", "tc filter del dev line1 ingress", "tc filter del dev line1 ingress prio 1",
        "tc filter del dev up9 egress prio 3", "tc qdisc del dev up9 clsact", "tc qdisc del dev br0_back clsact",
        "ip link del br0_back"}) {
    ASSERT_TRUE(run(what)) << what;
    const auto begin = std::chrono::steady_clock::now();
    frame_bytes came;
    ASSERT_TRUE(wait_until([&] { return line.send(request), !(came = uplink.receive(false)).empty(); })) << what;
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1)) << what;
    for (; !came.empty(); came = uplink.receive(false))
      ASSERT_TRUE(came == after_agent(request) || what.find("up9") != std::string::npos) << what;
    EXPECT_TRUE(wait_until([&] { return said(programs) == before; })) << what;
  }
  node.stop();
  const std::string told = testing::internal::GetCapturedStderr();
  for (const char* where : {"line1", "up9"})
    EXPECT_THAT(told, HasSubstr(std::string("kvbridged: br0: the programs at ") + where +
                                " were taken off by somebody else, and are back\n"));
  EXPECT_THAT(told, HasSubstr("the device br0_back was deleted by somebody else, and is back"));
}

TEST_F(KernelBridge, EndLeavesInterfacesAsTheyWere)
{
  const char everything[] = "tc qdisc show; for i in line1 line2 up9; do tc filter show dev $i ingress; done 2>&1";
  ASSERT_TRUE(run("tc qdisc add dev line1 clsact && tc qdisc add dev line2 clsact && "
                  "tc filter add dev line2 ingress prio 7 protocol ip u32 match u32 0 0 flowid 1:1"));
  const std::string before = said(everything);
  {
    cabled_bridge node(settings_of());
    EXPECT_NE(said(everything), before);
  }
  EXPECT_EQ(said(everything), before);
  EXPECT_EQ(if_nametoindex("br0_back"), 0u);
}

// The next one goes on with the counts; between the two nothing passes.
TEST_F(KernelBridge, ProgramsOutliveTheirProcessAndAreTakenOver)
{
  testing::internal::CaptureStderr();
  wire line("hline1"), uplink("hup9");
  const frame_bytes request = discovery_frame(padi, everybody, client);
  {
    cabled_bridge node(settings_of());
    node.agent = treat;
    node.start();
    line.send(request);
    EXPECT_EQ(uplink.receive(), after_agent(request));
    EXPECT_THAT(kernel_status(false), StartsWith("br0: served, road open\n"));
    EXPECT_THAT([] { bridge_make(settings_of(), *std::make_unique<loop>()); },
                testing::ThrowsMessage<fatal>(StartsWith("there is a device 'br0_back' already: ")));
    EXPECT_THROW(kernel_release("br0"), fatal);
    node.stop();
  }
  const std::string others = ", refused by rate 0, stopped 0, passed 0, hidden 0, untreated 0\n";
  EXPECT_EQ(kernel_status(false), "br0: no kvbridged, road down\n"
                                  "  line1: subscriber, port 1, captured 1, given back 1" +
                                      others + "  line2: subscriber, port 2, captured 0, given back 0" + others +
                                      "  up9: network, port 9, captured 0, given back 0" + others);
  EXPECT_THAT(kernel_status(true),
              StartsWith("{\n  \"br0\": {\n    \"served\": false,\n    \"road\": \"down\",\n    \"members\": [\n"
                         "      {\n        \"interface\": \"line1\",\n        \"side\": \"subscriber\",\n"
                         "        \"port\": 1,\n        \"captured\": 1,\n        \"given_back\": 1,\n"));
  line.send(request);
  EXPECT_TRUE(run("ip link set line2 nomaster"));
  {
    cabled_bridge next(settings_of());
    EXPECT_FALSE(has_qdisc("line2"));
    line.send(request);
    next.agent = treat;
    next.start();
    line.send(request);
    EXPECT_EQ(uplink.receive(), after_agent(request));
    EXPECT_TRUE(uplink.receive(false).empty());
    next.stop();
    EXPECT_EQ(next.count("captured"), 2);
    EXPECT_EQ(next.count("stopped"), 2);
  }
  EXPECT_EQ(kernel_release("br0"), "line1: left as it was found\nup9: left as it was found\n");
  EXPECT_FALSE(has_qdisc("line1") || has_qdisc("up9"));
  line.send(request);
  EXPECT_EQ(uplink.receive(), request);
  const std::string stays = "kvbridged: br0: discovery stays stopped, since an agent's filter is in force\n";
  EXPECT_EQ(testing::internal::GetCapturedStderr(), stays + stays);
}

// One program for all protocols, as a kvbridged of before has left it.
void one_filter_leave(const std::string& interface, const bpf_program* program, bpf_tc_attach_point side)
{
  const auto index = static_cast<int>(if_nametoindex(interface.c_str()));
  bpf_tc_hook hook{};
  hook.sz = sizeof hook;
  hook.ifindex = index;
  hook.attach_point = static_cast<bpf_tc_attach_point>(BPF_TC_INGRESS | BPF_TC_EGRESS);
  bpf_tc_hook_create(&hook);
  hook.attach_point = side;
  bpf_tc_opts options{};
  options.sz = sizeof options;
  options.handle = 0x8863;
  options.priority = 1;
  options.prog_fd = bpf_program__fd(program);
  EXPECT_EQ(bpf_tc_attach(&hook, &options), 0) << interface;
}

TEST_F(KernelBridge, OneFilterForAllProtocolsIsReplacedWithoutAGap)
{
  const std::unique_ptr<discovery_bpf, void (*)(discovery_bpf*)> former(discovery_bpf__open_and_load(),
                                                                        discovery_bpf__destroy);
  const uint32_t first = 0;
  const kvb_control control{0, 1, 1, "br0"};
  bpf_map_update_elem(bpf_map__fd(former->maps.kvb_control), &first, &control, BPF_ANY);
  for (const auto& [interface, role] :
       std::map<std::string, uint32_t>{{"line1", 1 << 16}, {"up9", 9 << 16 | kvb_uplink}}) {
    const unsigned index = if_nametoindex(interface.c_str());
    kvb_counts counts{};
    counts.stopped = 1000;
    bpf_map_update_elem(bpf_map__fd(former->maps.kvb_roles), &index, &role, BPF_ANY);
    bpf_map_update_elem(bpf_map__fd(former->maps.kvb_counts), &index, &counts, BPF_ANY);
    one_filter_leave(interface, former->progs.kvb_member_in, BPF_TC_INGRESS);
  }
  one_filter_leave("up9", former->progs.kvb_uplink_out, BPF_TC_EGRESS);
  wire line("hline1"), uplink("hup9");
  const frame_bytes request = discovery_frame(padi, everybody, client);
  std::atomic<bool> over = false;
  long sent = 0;
  std::thread sending([&] {
    for (; !over; ++sent)
      line.send(request);
  });
  const cabled_bridge node(settings_of());
  over = true;
  sending.join();
  EXPECT_TRUE(uplink.receive(false).empty());
  EXPECT_EQ(node.count("stopped"), sent + 2000);
  EXPECT_EQ(node.count("untreated"), 0);
  EXPECT_EQ(said("tc filter show dev line1 ingress | grep -c 'protocol all'"), "0\n");
}

// One line, and the bridge as it was.
TEST_F(KernelBridge, RefusedByTheKernelItSaysSo)
{
  const auto make_without_rights = [] {
    loop events;
    rights_drop({CAP_SYS_ADMIN, CAP_BPF});  // what loading programs takes
    try {
      bridge_make(settings_of(), events);
    } catch (const fatal& error) {
      std::fputs(error.what(), stderr);
      _exit(1);
    }
    _exit(0);
  };
  EXPECT_EXIT(make_without_rights(), testing::ExitedWithCode(1), "this kernel takes no eBPF programs .*'br0' cannot");
  EXPECT_FALSE(has_qdisc("line1") || if_nametoindex("br0_back") != 0);
  loop events;
  bridge_settings absent = settings_of();
  absent.name = "nosuch0";
  EXPECT_THROW(bridge_make(absent, events), fatal);
}

}  // namespace
