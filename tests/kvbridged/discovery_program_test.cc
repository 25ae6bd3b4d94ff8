// The member's program, run by the kernel on frames as bytes.
#include "platform/kvbridged/kernel/bpf/maps.h"
#include "platform/kvbridged/kernel/found_programs.h"
#include "tests/kvbridged/frames.h"

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <discovery_bpf.skel.h>
#include <gtest/gtest.h>
#include <linux/pkt_cls.h>
#include <memory>

namespace {

using namespace kvbridged;

constexpr uint16_t stag = 0x9988;
constexpr uint32_t member = 1;  // the loopback interface, which every network has
constexpr unsigned char padi = 0x09, padr = 0x19;

class DiscoveryProgram : public testing::Test {
protected:
  void load(bool open_when_down, uint64_t padi_interval = 0, uint64_t padi_burst = 0)
  {
    libbpf_set_print(nullptr);
    loaded.reset(discovery_bpf__open());
    ASSERT_TRUE(loaded);
    loaded->rodata->stag_ethertype = stag;
    loaded->rodata->open_when_down = open_when_down;
    loaded->rodata->padi_interval = padi_interval;
    loaded->rodata->padi_burst = padi_burst;
    if (discovery_bpf__load(loaded.get()) != 0)
      GTEST_SKIP() << "this kernel takes no eBPF programs from us";
    const kvb_counts none{};
    bpf_map_update_elem(bpf_map__fd(loaded->maps.kvb_counts), &member, &none, BPF_ANY);
    role(1 << KVB_PORT_SHIFT);
  }
  void role(uint32_t value) { bpf_map_update_elem(bpf_map__fd(loaded->maps.kvb_roles), &member, &value, BPF_ANY); }
  void road(bool open, uint64_t alive_until)
  {
    const uint32_t first = 0;
    const kvb_control control{alive_until, open, 1, "br0"};
    bpf_map_update_elem(bpf_map__fd(loaded->maps.kvb_control), &first, &control, BPF_ANY);
  }
  void road_open() { road(true, monotonic_ns() + 60'000'000'000); }
  int verdict(const frame_bytes& frame, uint32_t mark = 0)
  {
    __sk_buff context{};
    context.mark = mark;
    context.ifindex = member;
    bpf_test_run_opts options{};
    options.sz = sizeof options;
    options.data_in = frame.data();
    options.data_size_in = static_cast<uint32_t>(frame.size());
    options.ctx_in = &context;
    options.ctx_size_in = sizeof context;
    EXPECT_EQ(bpf_prog_test_run_opts(bpf_program__fd(loaded->progs.kvb_member_in), &options), 0);
    return static_cast<int>(options.retval);
  }
  kvb_counts counts()
  {
    kvb_counts found{};
    bpf_map_lookup_elem(bpf_map__fd(loaded->maps.kvb_counts), &member, &found);
    return found;
  }

  std::unique_ptr<discovery_bpf, void (*)(discovery_bpf*)> loaded{nullptr, discovery_bpf__destroy};
};

// By frame_kind.
constexpr int verdicts[] = {TC_ACT_REDIRECT, TC_ACT_SHOT, TC_ACT_UNSPEC};

// What the agent's side takes for discovery is taken out, and what it calls hidden passes here no more than there.
TEST_F(DiscoveryProgram, AgreesWithClassify)
{
  load(false);
  if (IsSkipped())
    return;
  road_open();
  const auto compare = [&](frame_bytes frame, bool padded) {
    if (padded)
      frame.resize(60);
    ASSERT_EQ(verdict(frame), verdicts[static_cast<size_t>(classify(frame, stag).kind)])
        << testing::PrintToString(frame);
  };
  each_stack(stag, [&](const std::vector<uint16_t>& tags) {
    for (const uint16_t ethertype : {discovery_ethertype, uint16_t{0x8864}, uint16_t{0x9400}, uint16_t{1500}})
      for (const bool padded : {false, true})
        compare(frame_head(everybody, host_address(1), tags, ethertype), padded);
  });
  for (const std::vector<uint16_t>& outside : {std::vector<uint16_t>{}, {0x8100}, {stag, 0x8100}, {0x9100}})
    for (const std::vector<uint16_t>& inside : {std::vector<uint16_t>{}, {0x8100}})
      for (const unsigned char kind : std::initializer_list<unsigned char>{0x00, 0xf8, 0x80})
        for (const uint16_t ethertype : {discovery_ethertype, uint16_t{0x0800}})
          compare(behind_snap(outside, inside, kind, ethertype), false);
  frame_bytes cut = frame_head(everybody, host_address(1), {0x8100, 0x9100}, discovery_ethertype);
  for (cut.pop_back(); cut.size() > ethernet_header; cut.pop_back())
    compare(cut, false);
}

TEST_F(DiscoveryProgram, OnlyTheMembersOwnMarkPasses)
{
  load(false);
  if (IsSkipped())
    return;
  road_open();
  const frame_bytes frame = discovery_frame(padi, everybody, host_address(1));
  EXPECT_EQ(verdict(frame, member), TC_ACT_UNSPEC);
  EXPECT_EQ(verdict(frame, member + 1), TC_ACT_REDIRECT);
  EXPECT_EQ(verdict(frame, member | KVB_MARK_LEAVES), TC_ACT_REDIRECT);
  EXPECT_EQ(counts().captured, 2u);
}

// Each way in which the road can be down, in both modes.
TEST_F(DiscoveryProgram, RoadThatIsDownStopsDiscoveryOrLetsItPassAsItIs)
{
  const frame_bytes whole = discovery_frame(padi, everybody, host_address(1));
  const frame_bytes hidden = discovery_frame(padi, everybody, host_address(1), 60, {0x9100});
  const frame_bytes session = frame_head(everybody, host_address(1), {0x8100}, 0x8864);
  const uint64_t later = monotonic_ns() + 60'000'000'000;
  const std::function<void()> ways[] = {[&] { road(false, later); }, [&] { road(true, monotonic_ns() - 1); },
                                        [&] { road(true, later), role(0); }};
  for (const bool open_when_down : {false, true}) {
    const int verdict_then = open_when_down ? TC_ACT_UNSPEC : TC_ACT_SHOT;
    for (const auto& way : ways) {
      load(open_when_down);
      if (IsSkipped())
        return;
      way();
      EXPECT_EQ(verdict(whole), verdict_then);
      EXPECT_EQ(verdict(hidden), verdict_then);
      EXPECT_EQ(verdict(session), TC_ACT_UNSPEC);
      EXPECT_EQ(counts().stopped, open_when_down ? 0u : 1u);
      EXPECT_EQ(counts().hidden, open_when_down ? 0u : 1u);
      EXPECT_EQ(counts().passed, open_when_down ? 2u : 0u);
    }
  }
}

// An hour's interval: nothing comes back into the bucket while the test runs.
TEST_F(DiscoveryProgram, BucketHoldsItsBurstOfPadiAndNothingElseIsCounted)
{
  constexpr uint64_t hour = 3'600'000'000'000;
  load(false, hour, 3 * hour);
  if (IsSkipped())
    return;
  road_open();
  const frame_bytes request = discovery_frame(padi, everybody, host_address(1), 60, {0x8100});
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(verdict(request), TC_ACT_REDIRECT);
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(verdict(request), TC_ACT_SHOT);
  EXPECT_EQ(verdict(discovery_frame(padr, everybody, host_address(1), 60, {0x8100})), TC_ACT_REDIRECT);
  EXPECT_EQ(counts().refused_by_rate, 4u);
  EXPECT_EQ(counts().captured, 4u);
  role(1 << KVB_PORT_SHIFT | kvb_uplink);
  EXPECT_EQ(verdict(request), TC_ACT_REDIRECT);
}

}  // namespace
