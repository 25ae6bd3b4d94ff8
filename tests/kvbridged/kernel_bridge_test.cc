// A bridge of the kernel's between hosts at the ends of real cables, with an agent that marks what it treated.
#include "base/packed.h"
#include "platform/kvbridge/record_header.h"
#include "platform/kvbridged/kernel/found_programs.h"
#include "platform/kvbridged/kernel_bridges.h"
#include "platform/kvbridged/port_socket.h"
#include "tests/kvbridged/cables.h"
#include "tests/kvbridged/frames.h"

#include <atomic>
#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <discovery_bpf.skel.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <set>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace kvbridged;
using testing::HasSubstr;
using testing::StartsWith;

constexpr unsigned char padi = 0x09, pado = 0x07;
constexpr unsigned char treated = 0x77;  // the last byte of what was at the agent
const mac_address client = host_address(1), server = host_address(9);

// The end of a cable where all tags are in their places.
class wire {
public:
  explicit wire(const std::string& interface)
      : socket_(port_socket_open(interface, port_frames::discovery, 0x88a8)), sender_(interface)
  {
    constexpr int room = 64 * 1024 * 1024;
    setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
  }
  void send(frame_view frame) const { sender_.send(frame); }
  // Empty when none comes for some seconds, or with `waiting` false when none is there.
  frame_bytes receive(bool waiting = true)
  {
    pollfd wait{socket_.get(), POLLIN, 0};
    if (poll(&wait, 1, waiting ? 3000 : 0) != 1)
      return {};
    const auto frame = reader_.read(socket_.get());
    return frame ? frame_bytes(frame->bytes.begin(), frame->bytes.end()) : frame_bytes{};
  }

private:
  descriptor socket_;
  port_reader reader_;
  host sender_;
};

bridge_settings settings_of(kernel_settings kernel = {})
{
  kernel.uplinks.insert("up9");
  return {.name = "br0", .kernel = kernel};
}

bool treat(frame_bytes& record)
{
  record.back() = treated;
  return true;
}

frame_bytes after_agent(frame_bytes frame)
{
  frame.back() = treated;
  return frame;
}

bool wait_until(const std::function<bool()>& condition)
{
  for (int tries = 0; tries < 2000; ++tries) {
    if (condition())
      return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return false;
}

std::optional<uint32_t> port_at(const std::string& interface)
{
  const auto index = static_cast<int>(if_nametoindex(interface.c_str()));
  const auto found = found_programs::at(index);
  const auto role = found ? found->role(index) : std::nullopt;
  return role ? std::optional(*role >> KVB_PORT_SHIFT) : std::nullopt;
}

std::string said(const std::string& command)
{
  std::string text;
  FILE* output = popen(command.c_str(), "r");
  for (int byte; output && (byte = std::fgetc(output)) != EOF;)
    text += static_cast<char>(byte);
  pclose(output);
  return text;
}

// What loading programs takes.
void rights_drop()
{
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct rights[2]{};
  syscall(SYS_capget, &header, rights);
  rights[0].effective &= ~(1u << CAP_SYS_ADMIN);
  rights[1].effective &= ~(1u << (CAP_BPF - 32));
  syscall(SYS_capset, &header, rights);
}

bool has_qdisc(const std::string& interface)
{
  return run("tc qdisc show dev " + interface + " | grep -q clsact");
}

class KernelBridge : public testing::Test {
protected:
  void SetUp() override
  {
    if (const std::string why = network_enter(); !why.empty())
      GTEST_SKIP() << why;
    const bpf_insn nothing[] = {{BPF_ALU64 | BPF_MOV | BPF_K, 0, 0, 0, 0}, {BPF_JMP | BPF_EXIT, 0, 0, 0, 0}};
    const descriptor program(bpf_prog_load(BPF_PROG_TYPE_SCHED_CLS, "probe", "", nothing, 2, nullptr));
    if (program.get() < 0)
      GTEST_SKIP() << "this kernel takes no eBPF programs from us";
    if (access("/dev/net/tun", R_OK | W_OK) != 0)
      GTEST_SKIP() << "needs TAP devices";
    kernel_bridge_cable("br0", {"line1", "line2", "up9"});
    run("bridge link set dev line1 isolated on; bridge link set dev line2 isolated on");
  }
};

TEST_F(KernelBridge, DiscoveryComesBackFromTheAgentBehindItsTags)
{
  cabled_bridge node(settings_of());
  wire line("hline1"), uplink("hup9");
  std::atomic<int> wrong = 0;
  frame_bytes sent;
  node.agent = [&](frame_bytes& record) {
    const auto name = [&](size_t at) { return std::string(reinterpret_cast<const char*>(&record[at])); };
    const std::string way = name(kernel_header::input_device) + " " + name(kernel_header::output_device) + " " +
                            std::to_string(host_at<uint16_t>(record, kernel_header::input_port));
    const bool whole = std::equal(sent.begin(), sent.end(), record.begin() + kernel_header::size, record.end());
    wrong += !whole || (way != "line1 br0 1" && way != "up9 br0 9");
    return treat(record);
  };
  node.start();
  for (const std::vector<uint16_t>& tags : std::vector<std::vector<uint16_t>>{
           {}, {0x8100}, {0x88a8}, {0x88a8, 0x8100}, {0x8100, 0x8100, 0x8100}, {0x88a8, 0x8100, 0x8100, 0x8100}}) {
    sent = discovery_frame(padi, everybody, client, 80, tags);
    line.send(sent);
    ASSERT_EQ(uplink.receive(), after_agent(sent)) << tags.size();
    sent = discovery_frame(pado, client, server, 80, tags);
    uplink.send(sent);
    ASSERT_EQ(line.receive(), after_agent(sent)) << tags.size();
  }
  for (const std::vector<uint16_t>& tags :
       std::vector<std::vector<uint16_t>>{{0x9100}, {0x8100, 0x9200}, std::vector<uint16_t>(5, 0x8100)})
    line.send(discovery_frame(padi, everybody, client, 80, tags));
  sent = discovery_frame(padi, everybody, client);
  line.send(sent);
  EXPECT_EQ(uplink.receive(), after_agent(sent));
  node.stop();
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(node.statistics(), "br0: road open, to agent 13, from agent 13, captured 13, given back 13, dropped 0, "
                               "answered 0, too large 0, hidden 3, refused by rate 0, stopped 0, passed 0, "
                               "untreated 0, lost 0");
}

// Discovery and sessions behind each type of tag as the first, and as the second behind one that the kernel takes off,
// and behind SNAP; each with its number in the last two bytes.
std::vector<frame_bytes> behind_every_tag(uint16_t stag)
{
  std::vector<frame_bytes> frames;
  for (const uint16_t ethertype : {discovery_ethertype, uint16_t{0x8864}}) {
    frames.push_back(frame_head(everybody, client, {}, ethertype));
    for (const uint16_t tag : tag_types(stag)) {
      frames.push_back(frame_head(everybody, client, {tag}, ethertype));
      frames.push_back(frame_head(everybody, client, {0x8100, tag}, ethertype));
      frames.push_back(frame_head(everybody, client, {0x88a8, tag}, ethertype));
      frames.push_back(behind_snap({tag}, {}, 0, ethertype));
    }
    for (const unsigned char kind : std::initializer_list<unsigned char>{0x00, 0xf8})
      frames.push_back(behind_snap({}, {}, kind, ethertype));
  }
  for (size_t i = 0; i < frames.size(); ++i) {
    frames[i].resize(62);
    word_add(frames[i], static_cast<unsigned>(i));
  }
  return frames;
}

// The numbers of those that arrive. The last is a session's.
std::set<unsigned> arriving(const std::vector<frame_bytes>& frames, const host& from, const host& to)
{
  std::set<unsigned> numbers;
  for (const frame_bytes& frame : frames)
    from.send(frame);
  while (!numbers.contains(static_cast<unsigned>(frames.size() - 1))) {
    const frame_bytes frame = to.receive();
    if (frame.empty())
      break;
    if (source_of(frame) == client)
      numbers.insert(word_at(frame, frame.size() - 2));
  }
  return numbers;
}

// At the member, and at the uplink when somebody has taken the member's programs off.
TEST_F(KernelBridge, DiscoveryIsKeptBackWhateverTagStandsFirst)
{
  for (const uint16_t stag : {uint16_t{0x88a8}, uint16_t{0x9988}}) {
    bridge_settings settings = settings_of();
    settings.stag_ethertype = stag;
    cabled_bridge node(settings);
    const host line("hline1"), uplink("hup9");
    const std::vector<frame_bytes> frames = behind_every_tag(stag);
    std::set<unsigned> others;
    for (size_t i = 0; i < frames.size(); ++i)
      if (classify(frames[i], stag).kind == frame_kind::other)
        others.insert(static_cast<unsigned>(i));
    const auto kept = static_cast<long>(frames.size() - others.size());
    EXPECT_EQ(arriving(frames, line, uplink), others);
    EXPECT_EQ(node.count("stopped") + node.count("hidden"), kept);
    ASSERT_TRUE(run("tc filter del dev line1 ingress"));
    EXPECT_EQ(arriving(frames, line, uplink), others);
    EXPECT_EQ(node.count("untreated"), kept);
  }
}

TEST_F(KernelBridge, ErrorAnswersLeaveByTheClientsMember)
{
  cabled_bridge node(settings_of());
  wire line("hline1"), other("hline2"), uplink("hup9");
  node.agent = [](frame_bytes& record) {
    record[kernel_header::output_device] = 0;
    const mac_address answered = source_of(frame_view(record).subspan(kernel_header::size));
    std::copy(answered.begin(), answered.end(), record.begin() + kernel_header::size);
    return treat(record);
  };
  node.start();
  const frame_bytes request = discovery_frame(padi, everybody, client, 80, {0x8100});
  line.send(request);
  const frame_bytes answer = line.receive();
  EXPECT_EQ(answer, after_agent(discovery_frame(padi, client, client, 80, {0x8100})));
  // Larger than the agent's buffer: answered here.
  line.send(discovery_frame(padi, everybody, client, 1510));
  EXPECT_EQ(line.receive(), error_answer(discovery_frame(padi, everybody, client, 1510), ethertype_offset,
                                         interface_address("line1").value()));
  uplink.send(discovery_frame(pado, client, server, 1510));
  line.send(discovery_frame(padi, everybody, client, 1499));
  EXPECT_EQ(line.receive().size(), 1499u);
  node.stop();
  EXPECT_TRUE(uplink.receive(false).empty());
  EXPECT_TRUE(other.receive(false).empty());
  EXPECT_EQ(node.count("answered"), 1);
  EXPECT_EQ(node.count("too large"), 1);
  EXPECT_EQ(node.count("dropped"), 1);
}

TEST_F(KernelBridge, MembersComeAndGoAndAreRenamed)
{
  testing::internal::CaptureStderr();
  cabled_bridge node(settings_of());
  std::atomic<int> port = 0;
  node.agent = [&](frame_bytes& record) { return port = record[kernel_header::input_port], treat(record); };
  node.start();
  wire uplink("hup9");
  cable_make("line5");
  EXPECT_EQ(port_at("line5"), std::nullopt);
  EXPECT_TRUE(run("ip link set line5 master br0"));
  ASSERT_TRUE(wait_until([] { return port_at("line5") == 5; }));
  const wire line("hline5");
  const frame_bytes request = discovery_frame(padi, everybody, client);
  line.send(request);
  EXPECT_EQ(uplink.receive(), after_agent(request));
  EXPECT_EQ(port, 5);
  EXPECT_TRUE(run("ip link set line5 down && ip link set line5 name line6 && ip link set line6 up"));
  ASSERT_TRUE(wait_until([] { return port_at("line6") == 6; }));
  link_up("line6");
  line.send(request);
  EXPECT_EQ(uplink.receive(), after_agent(request));
  EXPECT_EQ(port, 6);
  // Another name of the bridge opens nothing.
  EXPECT_TRUE(run("ip link set br0 down && ip link set br0 name br7 && ip link set br7 up"));
  line.send(request);
  EXPECT_EQ(uplink.receive(), after_agent(request));
  EXPECT_TRUE(run("ip link set br7 down && ip link set br7 name br0 && ip link set br0 up"));
  // Who takes another's number makes both nameless.
  EXPECT_TRUE(run("ip link set line6 down && ip link set line6 name other1 && ip link set other1 up"));
  EXPECT_TRUE(wait_until([] { return port_at("line1") == 0 && port_at("other1") == 0; }));
  EXPECT_THAT(kernel_status(false), HasSubstr("  line1: subscriber, no port, captured 0, "));
  EXPECT_TRUE(run("ip link set other1 nomaster"));
  EXPECT_TRUE(wait_until([] { return port_at("line1") == 1 && !port_at("other1") && !has_qdisc("other1"); }));
  EXPECT_TRUE(run("ip link del line2"));
  EXPECT_TRUE(run("ip link del br0 && ip link add br0 type bridge && ip link set br0 up"));
  EXPECT_TRUE(wait_until([] { return !port_at("up9") && !has_qdisc("line1"); }));
  EXPECT_TRUE(run("ip link set up9 master br0 && ip link set line1 master br0"));
  ASSERT_TRUE(wait_until([] { return port_at("up9") == 9 && port_at("line1") == 1; }));
  const wire first("hline1");
  ASSERT_TRUE(wait_until([&] { return first.send(request), uplink.receive(false) == after_agent(request); }));
  node.stop();
  const auto nameless = [](const std::string& name) {
    return "kvbridged: br0: " + name + " has no port number of its own, so its discovery is not served: give it one " +
           "by --port " + name + "=NUMBER\n";
  };
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            nameless("line1") + nameless("other1") +
                "kvbridged: br0: the bridge is gone; it is served again when it is back\n");
}

TEST_F(KernelBridge, MemberMovesToAnotherBridge)
{
  testing::internal::CaptureStderr();
  EXPECT_TRUE(run("ip link add br1 type bridge && ip link set br1 up"));
  bridge_settings other = settings_of();
  other.name = "br1";
  loop events;
  const descriptor stop(eventfd(0, 0));
  events.watch(stop.get(), [&] { events.end(); });
  const auto first = bridge_make(settings_of(), events), second = bridge_make(other, events);
  std::thread serving([&] { events.run(); });
  const auto bridge_at_line = [] {
    const auto found = found_programs::at(static_cast<int>(if_nametoindex("line2")));
    return found ? found->bridge() : "";
  };
  for (const char* bridge : {"br1", "br0", "br1", "br0"}) {
    EXPECT_TRUE(run(std::string("ip link set line2 master ") + bridge));
    EXPECT_TRUE(wait_until([&] { return bridge_at_line() == bridge; }));
  }
  eventfd_write(stop.get(), 1);
  serving.join();
  EXPECT_EQ(bridge_at_line(), "br0");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "kvbridged: br1: none of its members is an --uplink: there is nowhere for discovery to go\n");
}

TEST_F(KernelBridge, MemberThatWasInAnotherNamespaceIsServedAgain)
{
  cabled_bridge node(settings_of());
  node.agent = treat;
  node.start();
  const frame_bytes request = discovery_frame(padi, everybody, client);
  const std::string home = said("readlink /proc/self/ns/net"), away = said("unshare -n sleep 60 >&- & echo -n $!");
  ASSERT_TRUE(wait_until([&] { return said("readlink /proc/" + away + "/ns/net") != home; }));
  ASSERT_TRUE(run("ip link set line2 netns " + away));
  ASSERT_TRUE(wait_until([&] { return !if_nametoindex("line2"); }));
  {
    wire line("hline1"), uplink("hup9");
    line.send(request);
    EXPECT_EQ(uplink.receive(), after_agent(request)) << "the others are served";
  }
  const std::string inside = "nsenter -t " + away + " -n ";
  EXPECT_FALSE(run(inside + "tc qdisc show dev line2 | grep -q clsact")) << "it takes no program along";
  ASSERT_TRUE(run(inside + "ip link set line2 netns " + std::to_string(getpid())));
  ASSERT_TRUE(run("ip link set line2 master br0 && ip link set line2 up"));
  ASSERT_TRUE(wait_until([] { return port_at("line2") == 2; }));
  link_up("line2");
  wire line("hline2"), uplink("hup9");
  line.send(request);
  EXPECT_EQ(uplink.receive(), after_agent(request));
  // Gone with its namespace.
  ASSERT_TRUE(run("ip link set line2 netns " + away + " && kill " + away));
  wire other("hline1");
  other.send(request);
  EXPECT_EQ(uplink.receive(), after_agent(request));
  node.stop();
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

// The loop stands still, as that of a process that was killed: its heart is not heard any more.
TEST_F(KernelBridge, DeadProcessIsSeenWithinASecond)
{
  wire line("hline1"), uplink("hup9");
  const frame_bytes request = discovery_frame(padi, everybody, client);
  for (const when_down mode : {when_down::open, when_down::closed}) {
    const bool open = mode == when_down::open;
    EXPECT_FALSE(has_qdisc("line1")) << "nothing is left in open mode";
    cabled_bridge node(settings_of({.mode = mode}));
    node.agent = treat;
    node.start();
    if (open)
      std::this_thread::sleep_for(std::chrono::seconds(1));  // its heart beats without traffic too
    line.send(request);
    EXPECT_EQ(uplink.receive(), after_agent(request));
    node.stop();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    line.send(request);
    EXPECT_EQ(uplink.receive(open), open ? request : frame_bytes{});
    EXPECT_EQ(node.count("stopped"), open ? 0 : 1);
    EXPECT_EQ(node.count("passed"), open ? 1 : 0);
  }
}

TEST_F(KernelBridge, RateIsEachSubscribersOwn)
{
  cabled_bridge node(settings_of({.rate = {.per_second = 1, .burst = 5}}));
  wire line1("hline1"), line2("hline2"), uplink("hup9");
  node.agent = treat;
  node.start();
  for (int i = 0; i < 1000; ++i)
    line1.send(discovery_frame(padi, everybody, client));
  for (int i = 0; i < 5; ++i)
    line2.send(discovery_frame(padi, everybody, host_address(2)));
  std::map<unsigned char, int> came;
  for (int i = 0; i < 10; ++i)
    if (const frame_bytes frame = uplink.receive(); frame.size() > 12)
      ++came[frame[11]];
  node.stop();
  EXPECT_EQ(came[2], 5);
  EXPECT_GE(came[1], 5);
  EXPECT_GE(node.count("refused by rate"), 990);
  EXPECT_EQ(node.count("captured") + node.count("refused by rate"), 1005);
}

// One line, and the bridge as it was.
TEST_F(KernelBridge, RefusedByTheKernelItSaysSo)
{
  const auto make_without_rights = [] {
    loop events;
    rights_drop();
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

// Ten thousand clients at once, each frame with a number of its own.
TEST_F(KernelBridge, StormLosesNothing)
{
  constexpr unsigned clients = 10'000;
  cabled_bridge node(settings_of());
  wire line("hline1"), uplink("hup9");
  node.agent = treat;
  node.start();
  for (unsigned i = 0; i < clients; ++i) {
    mac_address address = client;
    address[1] = static_cast<unsigned char>(i >> 8);
    address[2] = static_cast<unsigned char>(i);
    line.send(discovery_frame(padi, everybody, address));
  }
  std::set<unsigned> came;
  for (unsigned i = 0; i < clients; ++i) {
    const frame_bytes frame = uplink.receive();
    ASSERT_EQ(frame.size(), 60u) << i;
    ASSERT_EQ(frame.back(), treated);
    came.insert(unsigned{frame[7]} << 8 | frame[8]);
  }
  node.stop();
  EXPECT_EQ(came.size(), clients);
  EXPECT_EQ(node.count("lost"), 0);
}

}  // namespace
