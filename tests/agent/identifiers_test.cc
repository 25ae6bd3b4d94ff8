// Which identifier a port and VLAN get: modes, formats, defaults, queries.
#include "pppoeia/customid/trace.h"
#include "pppoeia/log.h"
#include "pppoeia/pppoeia.h"
#include "pppoeia/records.h"
#include "tests/support/api_fixture.h"
#include "tests/support/records_fixture.h"
#include "tests/support/syslog_capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <unistd.h>

namespace {

class Identifiers : public testing::Test {
protected:
  Identifiers() : bridge(*bridge_find("br0"))
  {
    agent.port_add(1);
    pppoeia_bridge_shelf_id_set("br0", "1");
    bridge.board_pos = 3;
    bridge.frame_vlan_words = 0x2064'0fff;  // VID 100, no customer VLAN
  }

  static std::string circuit(uint32_t port, uint16_t vlan)
  {
    char text[256] = "";
    EXPECT_EQ(gen_circuit_id_by_intf_vlan("br0", port, vlan, text), 0);
    return text;
  }
  static std::string remote(uint32_t port, uint16_t vlan)
  {
    char text[256] = "";
    EXPECT_EQ(gen_remote_id_by_intf_vlan("br0", port, vlan, text), 0);
    return text;
  }

  api_fixture agent;
  pppoeia_bridge& bridge;
};

TEST_F(Identifiers, DefaultEthernetText)
{
  EXPECT_EQ(circuit(1, 100), "VELTRONA:1 eth 3/port1:100");
  bridge.vsa_circuit_id_cvlan = 1;
  EXPECT_EQ(circuit(1, 100), "VELTRONA:1 eth 3/port1:100");
  bridge.frame_vlan_words = 0x2064'1fff;  // the whole word is not 4095
  EXPECT_EQ(circuit(1, 100), "VELTRONA:1 eth 3/port1:100:4095");
  bridge.port[0].vlan_info.clear(100);
  EXPECT_EQ(circuit(1, 100), "VELTRONA:1 eth 3/port1:4095");
  EXPECT_EQ(circuit(1, 4095), "VELTRONA:1 eth 3/port1:<vid>:<cvid>");
  EXPECT_EQ(circuit(1, 4096), "VELTRONA:1 eth 3/port1:4095");  // no bit of such a VLAN is set
  char text[256];
  EXPECT_EQ(pppoeia_port_circuit_id_get("br0", 1, text), 0);
  EXPECT_STREQ(text, "VELTRONA:1 eth 3/port1:<vid>:<cvid>");
  EXPECT_EQ(pppoeia_port_circuit_id_get("br0", 2, text), -ENODEV);
  EXPECT_EQ(pppoeia_port_circuit_id_get("brX", 1, text), -ENOENT);
}

// What the worker keeps of a frame is its own: a query of any line would show the client of another.
TEST_F(Identifiers, QueryOutsideAFrameHasNoClient)
{
  pppoeia_circuit_id_format_set("br0", "c$CLNT_MAC.");
  pppoeia_port_vsa_circuit_id_mode_set("br0", 1, 2);
  bridge.vlan_enabled.set(0);
  bridge.port[0].state = 1;
  wire_send(agent.kernel.wire("br0_pppoe"), test_frame{}.build());
  const byte_string sent = wire_receive(agent.kernel.wire("br0_pppoe"));
  const std::string inserted(sent.begin(), sent.end());
  EXPECT_THAT(inserted, testing::HasSubstr("c02:11:22:AA:BB:CC."));
  pppoeia_log_level = log_debug;
  syslog_take();
  char text[256];
  EXPECT_EQ(pppoeia_port_circuit_id_get("br0", 1, text), 0);
  EXPECT_STREQ(text, "c.");
  EXPECT_THAT(syslog_take_texts(), testing::Contains("<br0> >> Invalid frame )\n"));
}

TEST_F(Identifiers, DefaultAtmTextIsForAtmPortsAndNotCut)
{
  pppoeia_port_vsa_circuit_id_mode_set("br0", 1, 1);
  EXPECT_EQ(circuit(1, 100), "");
  agent.port_add(2, "atm", 0, 77);
  pppoeia_port_vsa_circuit_id_mode_set("br0", 2, 1);
  EXPECT_EQ(circuit(2, 100), "VELTRONA:1 atm 3/77:-1.-1");
  pppoeia_port_pvc_set("br0", 2, 8, 35);
  pppoeia_bridge_vendor_set("br0", std::string(19, 'v').c_str());
  pppoeia_bridge_shelf_id_set("br0", std::string(39, 's').c_str());
  EXPECT_EQ(circuit(2, 100), std::string(19, 'v') + ":" + std::string(39, 's') + " atm 3/77:8.35");
  pppoeia_port_vsa_circuit_id_mode_set("br0", 1, 0);
  EXPECT_EQ(circuit(1, 100).size(), 63u);
}

TEST_F(Identifiers, EntryOfPortAndVlanDecidesOverThePort)
{
  pppoeia_port_vlan_add("br0", 1, 100);
  EXPECT_EQ(circuit(1, 100), "");  // its mode is not set, and counts
  EXPECT_EQ(circuit(1, 101), "VELTRONA:1 eth 3/port1:100");
  pppoeia_circuit_id_mode_port_vlan_set("br0", 1, 100, 2);
  EXPECT_EQ(circuit(1, 100), "");  // no format anywhere
  pppoeia_circuit_id_format_set("br0", "global $PORT");
  EXPECT_EQ(circuit(1, 100), "global 1");
  pppoeia_circuit_id_format_port_vlan_set("br0", 1, 100, "own $VLAN");
  EXPECT_EQ(circuit(1, 100), "own 100");
  pppoeia_port_vsa_circuit_id_mode_set("br0", 1, 2);
  pppoeia_circuit_id_format_port_vlan_set("br0", 1, 4095, "never");
  EXPECT_EQ(circuit(1, 4095), "global 1");
}

TEST_F(Identifiers, EntryAbove4095CountsUnlessItsLowBitsMeanNoVlan)
{
  pppoeia_circuit_id_mode_port_vlan_set("br0", 1, 4196, 3);
  pppoeia_circuit_id_mode_port_vlan_set("br0", 1, 8191, 3);
  EXPECT_EQ(circuit(1, 4196), "");
  EXPECT_EQ(circuit(1, 100), "VELTRONA:1 eth 3/port1:100");
  EXPECT_EQ(circuit(1, 8191), "VELTRONA:1 eth 3/port1");
}

// What standard output holds back until the process ends helps nobody who tries a format.
TEST_F(Identifiers, TestDebugShowsAtOnceWhereModeAndFormatComeFrom)
{
  pppoeia_circuit_id_mode_port_vlan_set("br0", 1, 100, 2);
  pppoeia_circuit_id_format_set("br0", "line");
  pppoeia_remote_id_format_set("br0", "name");
  std::fflush(stdout);
  const int former = dup(STDOUT_FILENO);
  const auto traced = [&](auto&& operation) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    dup2(ends[1], STDOUT_FILENO);
    customFormatTestDebug = true;
    operation(1, 100);
    customFormatTestDebug = false;
    dup2(former, STDOUT_FILENO);
    close(ends[1]);
    std::string trace(65536, '\0');
    trace.resize(static_cast<size_t>(read(ends[0], trace.data(), trace.size())));
    close(ends[0]);
    return trace;
  };
  const std::string of_circuit = traced(circuit);
  EXPECT_THAT(of_circuit, testing::ContainsRegex("\tPPPOEIA_DEBUG:pppoeia_build_circuit_id,[0-9]+: Using global "
                                                 "format='line'\n"));
  EXPECT_THAT(of_circuit, testing::HasSubstr("interface-vlan CID mode=2\n"));
  EXPECT_THAT(traced(remote), testing::ContainsRegex("\tPPPOEIA_DEBUG:pppoeia_build_remote_id,[0-9]+: Using global "
                                                     "format='name'\n"));
  close(former);
}

TEST_F(Identifiers, RemoteIdComesFromFormatsOnlyAndKnowsNoCustomerVlan)
{
  EXPECT_EQ(remote(1, 100), "");
  pppoeia_remote_id_format_set("br0", "$VLAN/$CVID.");
  bridge.frame_vlan_words = 0x0064'0007;
  EXPECT_EQ(remote(1, 100), "100/.");
  pppoeia_circuit_id_format_set("br0", "$VLAN/$CVID.");
  pppoeia_port_vsa_circuit_id_mode_set("br0", 1, 2);
  EXPECT_EQ(circuit(1, 100), "100/7.");
}

}  // namespace
