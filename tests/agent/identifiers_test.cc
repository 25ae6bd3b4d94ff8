// What a query of an identifier shows of itself. Which identifier a port and VLAN get is the models'.
#include "pppoeia/customid/trace.h"
#include "pppoeia/pppoeia.h"
#include "tests/support/api_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <unistd.h>

namespace {

// What standard output holds back until the process ends helps nobody who tries a format.
TEST(Identifiers, TestDebugShowsAtOnceWhereModeAndFormatComeFrom)
{
  const api_fixture agent;
  api_fixture::port_add(1);
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
