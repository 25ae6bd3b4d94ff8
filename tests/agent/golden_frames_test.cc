// Frames of tests/frames on their way through the agent: what leaves of each, to the byte. The bridge's side of the
// wire is kvbridged's, the agent's its own.
#include "platform/kvbridged/record.h"
#include "pppoeia/pppoeia.h"
#include "tests/support/fake_kernel.h"
#include "tests/support/golden_frame.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace {

using frame_bytes = std::vector<unsigned char>;

enum from_port : uint16_t { subscriber = 1, trusted = 2, network = 9 };

struct passage {
  const char* came;
  from_port by;
  const char* left;  // empty: nothing
};

std::ostream& operator<<(std::ostream& to, const passage& one)
{
  return to << one.came << " by port " << one.by;
}

const passage passages[] = {
    {"padi", subscriber, "padi-of-line"},
    {"padi-tagged", subscriber, "padi-tagged-of-line"},
    {"padi-double-tagged", subscriber, "padi-double-tagged-of-line"},
    {"padi-vendor-tag", subscriber, ""},
    {"padi-vendor-tag", trusted, "padi-vendor-tag-of-line"},
    {"padi-too-long", subscriber, "pado-error-in-place"},
    {"padi-past-end", subscriber, ""},
    {"padi", network, ""},
    {"padr", subscriber, "padr-of-line"},
    {"padt", subscriber, "padt"},
    {"pado", network, "pado"},
    {"pado", subscriber, ""},
    {"pado-vendor-tag", network, "pado"},
    {"pads-error", network, "pads-error"},
};

class GoldenFrames : public testing::TestWithParam<passage> {
protected:
  GoldenFrames()
  {
    EXPECT_EQ(pppoeia_init(), 0);
    EXPECT_EQ(pppoeia_bridge_add("br0", 16), 0);
    EXPECT_EQ(pppoeia_bridge_vlan_set_all("br0", 1), 0);
    EXPECT_EQ(pppoeia_circuit_id_format_set("br0", "AN12 eth 0/3:$VLAN"), 0);
    EXPECT_EQ(pppoeia_remote_id_format_set("br0", "$PORT_REM_ID"), 0);
    port_add(subscriber, 1, 1);
    port_add(trusted, 1, 0);
    port_add(network, 2, 0);
  }
  ~GoldenFrames() override { pppoeia_fini(); }

  // What comes out of the agent; a frame sent behind it tells when that is nothing.
  frame_bytes leaving(const std::string& name, from_port by)
  {
    const int wire = kernel.wire("br0_pppoe");
    send(golden_frame(name), by);
    const frame_bytes last = golden_frame("padt");
    send(last, subscriber);
    const frame_bytes first = frame_of(wire_receive(wire));
    if (name != "padt" && first == last)
      return {};
    EXPECT_EQ(frame_of(wire_receive(wire)), last);
    return first;
  }

private:
  static void port_add(uint32_t id, int32_t state, uint32_t trust)
  {
    constexpr int32_t custom = 2;
    const pppoeia_port_info info{.parent_id = 0, .type = "eth", .kind = 0, .location = {}};
    EXPECT_EQ(pppoeia_port_add("br0", id, ("line" + std::to_string(id)).c_str(), "0/3", &info), 0);
    EXPECT_EQ(pppoeia_port_state_set("br0", id, state), 0);
    EXPECT_EQ(pppoeia_port_trust_set("br0", id, trust), 0);
    EXPECT_EQ(pppoeia_port_vsa_circuit_id_mode_set("br0", id, custom), 0);
    EXPECT_EQ(pppoeia_port_remote_id_set("br0", id, "C-4711"), 0);
  }

  void send(const frame_bytes& frame, from_port by) const
  {
    wire_send(kernel.wire("br0_pppoe"), kvbridged::record_make(frame, kernel.stag_ethertype, by, "in", "out"));
  }

  static frame_bytes frame_of(const frame_bytes& record)
  {
    const auto parsed = kvbridged::record_parse(record);
    EXPECT_TRUE(parsed);
    return parsed ? frame_bytes(parsed->frame.begin(), parsed->frame.end()) : frame_bytes();
  }

  fake_kernel kernel;
};

TEST_P(GoldenFrames, LeaveAsWritten)
{
  const passage& one = GetParam();
  EXPECT_EQ(frame_text(leaving(one.came, one.by)), *one.left ? frame_text(golden_frame(one.left)) : "");
}

INSTANTIATE_TEST_SUITE_P(Each, GoldenFrames, testing::ValuesIn(passages));

}  // namespace
