// What trying a format shows of each step. The answers of the operations are the model's.
#include "pppoeia/customid/trace.h"
#include "pppoeia/identifiers/test_data.h"
#include "pppoeia/pppoeia.h"
#include "tests/customid/example_node.h"
#include "tests/support/files.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

// As "FUNCTION,LINE: " has them, which change with the source.
std::string without_source_lines(std::string text)
{
  for (size_t at = 0; (at = text.find(',', at)) != std::string::npos; ++at)
    if (const size_t end = text.find_first_not_of("0123456789", at + 1); text.compare(end, 2, ": ") == 0)
      text.erase(at, end - at);
  return text;
}

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
  const std::string trace = testing::internal::GetCapturedStdout();
  EXPECT_EQ(debug(0), "\n Test debug set to 0\n");
  EXPECT_EQ(without_source_lines(trace),
            "\tPPPOEIA_DEBUG:getNextMacroFormatString: macroFormatStr='$hz2VLAN', macroType=20 \n"
            "\t\tPPPOEIA_DEBUG:parseOptChars: optChars='hz2' \n"
            "\t\tPPPOEIA_DEBUG:parseOptChars: delimiter='', numChars=2, flags=0x07 \n"
            "\tPPPOEIA_DEBUG:getMacroStringValue: macroType=20('VLAN'), intfId=0, useData=2, vid=0, cvid=0 \n"
            "\tPPPOEIA_DEBUG:getMacroStringValue: macroString='0'\n"
            "\tPPPOEIA_DEBUG:processMacroString: processedStr='0000'\n"
            "\tPPPOEIA_DEBUG:getNextMacroFormatString: macroFormatStr='$hhPORT', macroType=6 \n"
            "\t\tPPPOEIA_DEBUG:parseOptChars: optChars='hh' \n"
            "\t\tPPPOEIA_DEBUG:parseOptChars: Duplicate hex option \n"
            "\tPPPOEIA_DEBUG:getNextMacroFormatString: ERROR: parseOptChars failed \n"
            "PPPOEIA_DEBUG:genCustomId: genId HEX DUMP=\n"
            "00 00 24 68 68 50 4f 52 54 \n");
  unlink(tty);
  pppoeia_globals = nullptr;
  customFormatTestData = {};
}

}  // namespace
