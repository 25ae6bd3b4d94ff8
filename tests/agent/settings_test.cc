// Bridge, port and VLAN settings: results, limits, deliberate asymmetries and traces.
#include "pppoeia/log.h"
#include "pppoeia/pppoeia.h"
#include "pppoeia/records.h"
#include "tests/support/api_fixture.h"
#include "tests/support/syslog_capture.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <functional>

namespace {

using testing::ElementsAre;

class Settings : public testing::Test {
protected:
  Settings() : bridge(*bridge_find("br0")) {}

  // The trace of a call.
  static std::vector<std::string> trace(const std::function<void()>& call)
  {
    pppoeia_log_level = log_debug;
    syslog_take();
    call();
    pppoeia_log_level = log_info;
    return syslog_take_texts();
  }

  api_fixture agent;
  pppoeia_bridge& bridge;
};

TEST_F(Settings, TextLimits)
{
  struct row {
    int (*set)(const char*, const char*);
    const char* stored;
    size_t most;
    int refusal;
  };
  const row rows[] = {
      {pppoeia_bridge_vendor_set, bridge.vendor, 19, -ENOMEM},
      {pppoeia_bridge_shelf_id_set, bridge.shelf_id, 39, -ENOSPC},
      {pppoeia_bridge_contact_set, bridge.contact, 64, -ENOSPC},
      {pppoeia_bridge_location_set, bridge.location, 64, -ENOSPC},
      {pppoeia_bridge_sysname_set, bridge.sysname, 64, -ENOSPC},
      {pppoeia_circuit_id_format_set, bridge.pppoeia_cid_format, 128, -ENOSPC},
      {pppoeia_remote_id_format_set, bridge.pppoeia_rid_format, 128, -ENOSPC},
  };
  for (const row& row : rows) {
    const std::string longest(row.most, 'x');
    EXPECT_EQ(row.set("br0", longest.c_str()), 0);
    EXPECT_EQ(row.set("br0", (longest + "x").c_str()), row.refusal);
    EXPECT_EQ(row.stored, longest);
    EXPECT_EQ(row.set("brX", (longest + "x").c_str()), -ENOENT);
  }
}

TEST_F(Settings, MaxPduIsAtMostTheMtu)
{
  EXPECT_EQ(pppoeia_bridge_max_pdu_set("br0", 1501), -EINVAL);
  EXPECT_EQ(bridge.max_pdu, 1500u);
  EXPECT_EQ(pppoeia_bridge_max_pdu_set("br0", 1500), 0);
  EXPECT_EQ(pppoeia_bridge_max_pdu_get("brX", nullptr), -EINVAL);
}

TEST_F(Settings, EnablingAVlanReachesPortsDisablingDoesNot)
{
  bridge.port[2].vlan_info.clear(100);
  EXPECT_EQ(pppoeia_bridge_vlan_set("br0", 4196, 1), 0);  // 100 in its low 12 bits
  EXPECT_TRUE(bridge.port[2].vlan_info.test(100));
  uint32_t enabled = 0;
  EXPECT_EQ(pppoeia_bridge_vlan_get("br0", 100, &enabled), 0);
  EXPECT_EQ(enabled, 1u);
  EXPECT_EQ(pppoeia_bridge_vlan_set("br0", 100, 0), 0);
  EXPECT_FALSE(bridge.vlan_enabled.test(100));
  EXPECT_TRUE(bridge.port[2].vlan_info.test(100));

  EXPECT_EQ(pppoeia_bridge_vlan_set_all("br0", 1), 0);
  EXPECT_TRUE(bridge.vlan_enabled.test(511));
  EXPECT_FALSE(bridge.vlan_enabled.test(512));

  agent.port_add(3);
  int32_t flag = 7;
  EXPECT_EQ(pppoeia_port_vlan_info_set("br0", 3, 600, 0), -1);
  EXPECT_EQ(pppoeia_port_vlan_info_get("br0", 3, 600, &flag), -1);
  EXPECT_EQ(pppoeia_port_vlan_info_set("br0", 3, 5, 0), 0);
  EXPECT_EQ(pppoeia_port_vlan_info_get("br0", 3, 5, &flag), 0);
  EXPECT_EQ(flag, 0);
}

TEST_F(Settings, LogLevelIsTheProcesss)
{
  EXPECT_EQ(pppoeia_bridge_debug_set("no such bridge", 1), 0);
  EXPECT_EQ(pppoeia_log_level.load(), 7);
  EXPECT_EQ(pppoeia_bridge_debug_set("", 0), 0);
  int32_t debug = 9;
  EXPECT_EQ(pppoeia_bridge_debug_get("x", &debug), 0);
  EXPECT_EQ(debug, 0);
  EXPECT_EQ(pppoeia_log_level_set(-2), 0);
  EXPECT_EQ(pppoeia_log_level.load(), 3);
  EXPECT_EQ(pppoeia_log_level_get(nullptr), -EINVAL);
  pppoeia_debug_admin_state_set(-5);
  int32_t state = 0;
  EXPECT_EQ(pppoeia_debug_admin_state_get(&state), 0);
  EXPECT_EQ(state, 1);
}

TEST_F(Settings, PortLife)
{
  agent.port_add(5);
  EXPECT_EQ(pppoeia_port_trust_set("br0", 5, 1), 0);
  EXPECT_EQ(pppoeia_port_remote_id_set("br0", 5, std::string(63, 'r').c_str()), 0);
  EXPECT_EQ(pppoeia_port_remote_id_set("br0", 5, std::string(64, 'r').c_str()), -ENOSPC);
  EXPECT_EQ(pppoeia_port_vlan_add("br0", 5, 10), 0);
  agent.port_add(5);  // again: nothing changes
  const pppoeia_port& port = bridge.port[4];
  EXPECT_EQ(std::strlen(port.remote_id), 63u);
  EXPECT_NE(port.port_vlans, nullptr);

  EXPECT_EQ(pppoeia_port_del("br0", 5), 0);
  EXPECT_EQ(pppoeia_port_del("br0", 5), -ENODEV);
  EXPECT_EQ(port.port_id, 5u);
  agent.port_add(5);
  EXPECT_EQ(port.trust, 1u);  // the slot keeps it
  EXPECT_STREQ(port.remote_id, "");
  EXPECT_EQ(port.port_vlans, nullptr);
  EXPECT_EQ(port.vpi, -1);
}

TEST_F(Settings, PortIdsAtTheEdges)
{
  const pppoeia_port_info info{};
  EXPECT_EQ(pppoeia_port_add("brX", 1, "d", "n", &info), -ENOENT);
  EXPECT_EQ(pppoeia_port_add("br0", 0, "d", "n", &info), -EINVAL);
  EXPECT_EQ(pppoeia_port_add("br0", 8, "d", "n", &info), 0);  // stored where nothing else reaches it
  EXPECT_EQ(pppoeia_port_state_set("br0", 8, 1), -ENODEV);
  EXPECT_EQ(pppoeia_port_add("br0", 9, "d", "n", &info), -ENOSPC);
  EXPECT_EQ(pppoeia_port_state_set("br0", 0, 1), -ENODEV);
  EXPECT_EQ(pppoeia_port_add("br0", 1, "sixteencharacters", "fourteen chars+", &info), 0);
  EXPECT_STREQ(bridge.port[0].dev_name, "sixteencharacter");
  EXPECT_STREQ(bridge.port[0].port_name, "fourteen chars");
}

TEST_F(Settings, ActivePorts)
{
  agent.port_add(1);
  agent.port_add(2);
  for (const int32_t state : {2, 3, 2, 1, 3})
    EXPECT_EQ(pppoeia_port_state_set("br0", 1, state), 0);
  EXPECT_EQ(bridge.active_ports, 1u);
  EXPECT_EQ(pppoeia_port_state_set_all("br0", 2), 0);
  EXPECT_EQ(bridge.active_ports, 1u);
  EXPECT_EQ(bridge.port[7].state, 2);
}

TEST_F(Settings, PvcIsForAtmPortsOnly)
{
  agent.port_add(1, "atm");
  agent.port_add(2, "eth");
  uint32_t vpi = 9, vci = 9;
  EXPECT_EQ(pppoeia_port_pvc_set("br0", 1, 8, 35), 0);
  EXPECT_EQ(pppoeia_port_pvc_get("br0", 1, &vpi, &vci), 0);
  EXPECT_EQ(vci, 35u);
  EXPECT_EQ(pppoeia_port_pvc_set("br0", 2, 8, 35), 1);
  EXPECT_EQ(pppoeia_port_pvc_get("br0", 2, &vpi, &vci), 1);
  EXPECT_EQ(pppoeia_port_pvc_get("br0", 3, &vpi, &vci), -ENODEV);
  EXPECT_EQ(pppoeia_port_pvc_get("br0", 3, nullptr, &vci), 1);
}

TEST_F(Settings, Traces)
{
  agent.port_add(1);
  EXPECT_THAT(trace([] { pppoeia_bridge_vsa_mode_set("br0", 0); }),
              ElementsAre("pppoeia_bridge_vsa_mode_set(br0, keep)", "pppoeia_bridge_vsa_mode_set()=0"));
  EXPECT_THAT(trace([] { pppoeia_bridge_state_set("brX", 1); }),
              ElementsAre("pppoeia_bridge_state_set(brX, 1)", "pppoeia_bridge_state_set()=-ENOENT"));
  EXPECT_THAT(trace([] { pppoeia_bridge_max_pdu_set("br0", 9999); }),
              ElementsAre("pppoeia_bridge_max_pdu_set(br0, 9999)", "pppoeia_bridge_max_pdu_set()=-22"));
  EXPECT_THAT(trace([] { pppoeia_circuit_id_format_set("br0", "$PORT"); }),
              ElementsAre("pppoeia_circuit_id_format_set(br0, $PORT)", "<br0> Custom CID format set.",
                          "pppoeia_circuit_id_format_set()=$PORT"));
  EXPECT_THAT(
      trace([] { pppoeia_port_trust_set("br0", 1, 1); }),
      ElementsAre("pppoeia_port_trust_set(br0, 1, 1)", "<br0> Port 1 type set to 1.", "pppoeia_port_trust_set()=0"));
  EXPECT_THAT(trace([] { pppoeia_port_parent_get("br0", 7, nullptr); }),
              ElementsAre("pppoeia_port_parent_get(br0) port=7"));
  char text[64];
  EXPECT_THAT(trace([&] { pppoeia_port_remote_id_get("br0", 1, text); }),
              ElementsAre("pppoeia_port_remote_id_get(br0, 1)", "br_port_remote_id_get(br0, 1)",
                          "br_port_remote_id_get()=0", "pppoeia_port_remote_id_get()=0"));
  pppoeia_stats stats;
  EXPECT_THAT(
      trace([&] { pppoeia_port_stats_get("br0", 7, &stats); }),
      ElementsAre("pppoeia_port_stats_get(br0, 7)", "pppoeia_port_stats_get(7)=-ENODEV", "pppoeia_port_stats_get()=0"));
}

}  // namespace
