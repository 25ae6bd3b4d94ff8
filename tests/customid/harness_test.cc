// What trying a format shows of each step. The answers of the operations are the model's.
#include "pppoeia/customid/trace.h"
#include "pppoeia/identifiers/test_data.h"
#include "pppoeia/pppoeia.h"
#include "tests/customid/example_node.h"
#include "tests/support/files.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <sstream>
#include <unistd.h>

namespace {

TEST(Harness, DebugSwitchTracesEachStep)
{
  example_node node;
  pppoeia_state state{&node.bridge()};
  pppoeia_globals = &state;
  customFormatTestData = {};
  char tty[] = "/tmp/harness_test.XXXXXX";
  close(mkstemp(tty));
  const auto debug = [&](uint32_t value) {
    EXPECT_EQ(truncate(tty, 0) | pppoeia_test_debug("br0", value, tty), 0);
    return file_text(tty);
  };
  EXPECT_EQ(debug(7), "\n Test debug set to 1\n");
  EXPECT_EQ(pppoeia_test_set("br0", "pppoeiaTestSetCustomCidStr", "$hz2VLAN$hhPORT", tty), 0);
  testing::internal::CaptureStdout();
  EXPECT_EQ(pppoeia_test_run("br0", "pppoeiaTestRunCid", "test", tty), 0);
  std::istringstream trace(testing::internal::GetCapturedStdout());
  EXPECT_EQ(debug(0), "\n Test debug set to 0\n");
  std::vector<std::string> lines;
  for (std::string line; std::getline(trace, line);) {
    const size_t comma = line.find(',');
    const size_t colon = line.find(": ", comma);  // the source line between them changes with the source
    lines.push_back(
        comma == std::string::npos || colon == std::string::npos ? line : line.substr(0, comma) + line.substr(colon));
  }
  EXPECT_EQ(lines, (std::vector<std::string>{
                       "\tPPPOEIA_DEBUG:getNextMacroFormatString: macroFormatStr='$hz2VLAN', macroType=20 ",
                       "\t\tPPPOEIA_DEBUG:parseOptChars: optChars='hz2' ",
                       "\t\tPPPOEIA_DEBUG:parseOptChars: delimiter='', numChars=2, flags=0x07 ",
                       "\tPPPOEIA_DEBUG:getMacroStringValue: macroType=20('VLAN'), intfId=0, useData=2, vid=0, cvid=0 ",
                       "\tPPPOEIA_DEBUG:getMacroStringValue: macroString='0'",
                       "\tPPPOEIA_DEBUG:processMacroString: processedStr='0000'",
                       "\tPPPOEIA_DEBUG:getNextMacroFormatString: macroFormatStr='$hhPORT', macroType=6 ",
                       "\t\tPPPOEIA_DEBUG:parseOptChars: optChars='hh' ",
                       "\t\tPPPOEIA_DEBUG:parseOptChars: Duplicate hex option ",
                       "\tPPPOEIA_DEBUG:getNextMacroFormatString: ERROR: parseOptChars failed ",
                       "PPPOEIA_DEBUG:genCustomId: genId HEX DUMP=",
                       "00 00 24 68 68 50 4f 52 54 ",
                   }));
  unlink(tty);
  pppoeia_globals = nullptr;
  customFormatTestData = {};
}

}  // namespace
