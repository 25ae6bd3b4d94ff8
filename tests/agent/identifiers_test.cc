// A query of an identifier, and what it shows of itself. Which identifier a port and VLAN get is the models'.
#include "pppoeia/customid/trace.h"
#include "pppoeia/log.h"
#include "pppoeia/pppoeia.h"
#include "pppoeia/records.h"
#include "tests/support/api_fixture.h"
#include "tests/support/records_fixture.h"
#include "tests/support/syslog_capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <unistd.h>

namespace {

class Identifiers : public testing::Test {
protected:
  Identifiers() { agent.port_add(1); }

  api_fixture agent;
};

// What the worker keeps of a frame is its own: a query of any line would show the client of another.
TEST_F(Identifiers, QueryOutsideAFrameHasNoClient)
{
  pppoeia_circuit_id_format_set("br0", "c$CLNT_MAC.");
  pppoeia_port_vsa_circuit_id_mode_set("br0", 1, 2);
  bridge_find("br0")->vlan_enabled.set(0);
  pppoeia_port_state_set("br0", 1, 1);
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

TEST_F(Identifiers, NoBitOfAVlanAbove4095IsSet)
{
  char text[256];
  EXPECT_EQ(gen_circuit_id_by_intf_vlan("br0", 1, 4096, text), 0);
  EXPECT_STREQ(text, "VELTRONA: eth 0/port1");
}

// What standard output holds back until the process ends helps nobody who tries a format.
TEST_F(Identifiers, TestDebugShowsAtOnceWhereModeAndFormatComeFrom)
{
  pppoeia_circuit_id_mode_port_vlan_set("br0", 1, 100, 2);
  pppoeia_circuit_id_format_set("br0", "line");
  pppoeia_remote_id_format_set("br0", "name");
  std::fflush(stdout);
  const int former = dup(STDOUT_FILENO);
  const auto traced = [&](auto* operation) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    dup2(ends[1], STDOUT_FILENO);
    customFormatTestDebug = true;
    char text[256];
    operation("br0", 1, 100, text);
    customFormatTestDebug = false;
    dup2(former, STDOUT_FILENO);
    close(ends[1]);
    std::string trace(65536, '\0');
    trace.resize(static_cast<size_t>(read(ends[0], trace.data(), trace.size())));
    close(ends[0]);
    return trace;
  };
  const std::string of_circuit = traced(gen_circuit_id_by_intf_vlan);
  EXPECT_THAT(of_circuit, testing::ContainsRegex("\tPPPOEIA_DEBUG:pppoeia_build_circuit_id,[0-9]+: Using global "
                                                 "format='line'\n"));
  EXPECT_THAT(of_circuit, testing::HasSubstr("interface-vlan CID mode=2\n"));
  EXPECT_THAT(traced(gen_remote_id_by_intf_vlan),
              testing::ContainsRegex("\tPPPOEIA_DEBUG:pppoeia_build_remote_id,[0-9]+: Using global "
                                     "format='name'\n"));
  close(former);
}

}  // namespace
