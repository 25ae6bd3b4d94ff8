// Discovery through a bridge of the kernel's: whatever is treated leaves as it should, and nothing else.
#include "base/packed.h"
#include "platform/kvbridge/record_header.h"
#include "tests/kvbridged/kernel_bridge_fixture.h"

#include <chrono>
#include <map>
#include <set>
#include <thread>

namespace {

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
  for (const size_t size : {1510, 1511}) {
    line.send(discovery_frame(padi, everybody, client, size));
    EXPECT_EQ(line.receive(), error_answer(discovery_frame(padi, everybody, client, size), ethertype_offset,
                                           interface_address("line1").value()));
  }
  uplink.send(discovery_frame(padi, client, server, 1510));  // not a client's
  line.send(discovery_frame(padi, everybody, client, 1499));
  EXPECT_EQ(line.receive().size(), 1499u);
  node.stop();
  EXPECT_TRUE(uplink.receive(false).empty());
  EXPECT_TRUE(other.receive(false).empty());
  EXPECT_EQ(node.count("answered"), 2);
  EXPECT_EQ(node.count("too large"), 1);
  EXPECT_EQ(node.count("dropped"), 1);
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
