// The operations by which operators try formats: answers, and what they do to later runs.
#include "pppoeia/customid/test_data.h"
#include "pppoeia/customid/trace.h"
#include "pppoeia/pppoeia.h"
#include "tests/customid/example_node.h"
#include "tests/support/files.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <sstream>
#include <unistd.h>

namespace {

class Harness : public testing::Test {
protected:
  Harness()
  {
    customFormatTestData = {};
    pppoeia_globals = &state_;
  }
  ~Harness() override
  {
    pppoeia_globals = nullptr;
    customFormatTestDebug = false;
    customFormatTestData = {};
  }

  // What an operation wrote to the terminal that it was given.
  template <typename Operation>
  std::string answer(int result, Operation operation)
  {
    char path[] = "/tmp/harness_test.XXXXXX";
    close(mkstemp(path));
    EXPECT_EQ(operation(path), result);
    const std::string text = file_text(path);
    unlink(path);
    return text;
  }

  std::string set(const char* option, const char* value, const char* bridge = "br0", int result = 0)
  {
    return answer(result, [&](const char* tty) { return pppoeia_test_set(bridge, option, value, tty); });
  }

  std::string run(const char* option, const char* mode)
  {
    return answer(0, [&](const char* tty) { return pppoeia_test_run("br0", option, mode, tty); });
  }

  std::string dump()
  {
    return answer(0, [](const char* tty) { return pppoeia_test_dump("br0", tty); });
  }

  example_node node_;
  pppoeia_state state_{&node_.bridge()};
};

TEST_F(Harness, SetsAndShowsEveryField)
{
  EXPECT_EQ(set("pppoeiaTestSetVlan", "100"), "Setting vlan: 100\n");
  EXPECT_EQ(set("pppoeiaTestSetCvid", "7"), "Setting cvid: 7\n");
  EXPECT_EQ(set("pppoeiaTestSetIntfId", "9"), "Setting intfId: 9\n");
  EXPECT_EQ(set("pppoeiaTestSetOnu", "4294967295"), "Setting onu: 4294967295\n");
  EXPECT_EQ(set("pppoeiaTestSetVgem", "12"), "Setting vgem: 12\n");
  EXPECT_EQ(set("pppoeiaTestSetTContType", "3"), "Setting tcontType: 3\n");
  EXPECT_EQ(set("pppoeiaTestSetClntMac", "00:11:22:aa:bb:CC"), "Setting clntMac: 00:11:22:aa:bb:CC\n");
  EXPECT_EQ(set("pppoeiaTestSetCustomCidStr", "a $PORT"), "Setting customCidStr: 'a $PORT'\n");
  EXPECT_EQ(set("pppoeiaTestSetCustomRidStr", ""), "Setting customRidStr: ''\n");
  EXPECT_EQ(dump(), "Debug:0\nTest data:\n------------\nvlan:100\ncvid:7\nintfId:9\nonu:4294967295\nvgem:12\n"
                    "tcontType:3\nclntMac:00:11:22:aa:bb:cc\ncustomCidStr: 'a $PORT'\ncustomRidStr: ''\n");
}

TEST_F(Harness, WhatCannotBeReadIsZeroOrCutOrLeft)
{
  EXPECT_EQ(set("pppoeiaTestSetVlan", "none"), "Setting vlan: 0\n");
  EXPECT_EQ(set("pppoeiaTestSetVlan", "65637"), "Setting vlan: 101\n");
  EXPECT_EQ(set("pppoeiaTestSetIntfId", ""), "Setting intfId: 0\n");
  set("pppoeiaTestSetClntMac", "00:11:22:aa:bb:cc");
  for (const char* wrong : {"", "00:11:22:aa:bb", "00:11:22:aa:bb:cg", "0:1:2:3:4:5", "00:11:22:aa:bb:cc:dd"})
    EXPECT_EQ(set("pppoeiaTestSetClntMac", wrong), "\n") << wrong;
  EXPECT_EQ(set("pppoeiaTestSetShelf", "1"), "\n");
  EXPECT_NE(dump().find("clntMac:00:11:22:aa:bb:cc\n"), std::string::npos);
  EXPECT_EQ(set("pppoeiaTestSetVlan", "9", "br9", 1), "");
  EXPECT_NE(dump().find("vlan:101\n"), std::string::npos);
}

TEST_F(Harness, RunsOnTestDataAndOnLiveRecords)
{
  EXPECT_EQ(run("pppoeiaTestRunCid", "test"), "\n Generated Custom Circuit Id: ''\n");
  set("pppoeiaTestSetCustomCidStr", "$PORT $ONU $VLAN $CVID $CLNT_MAC");
  set("pppoeiaTestSetCustomRidStr", "$hVLAN $TCONT");
  set("pppoeiaTestSetIntfId", "21");
  set("pppoeiaTestSetOnu", "5");
  set("pppoeiaTestSetVlan", "300");
  set("pppoeiaTestSetClntMac", "00:11:22:aa:bb:cc");
  EXPECT_EQ(run("pppoeiaTestRunCid", "test"), "\n Generated Custom Circuit Id: '21 5 300 0 00:11:22:AA:BB:CC'\n");
  EXPECT_EQ(run("pppoeiaTestRunCid", "available"), "\n Generated Custom Circuit Id: '21 12 300 0 00:11:22:AA:BB:CC'\n");
  EXPECT_EQ(run("pppoeiaTestRunRid", "test"), "\n Generated Custom Remote Id: '012c $TCONT'\n");
  EXPECT_EQ(run("pppoeiaTestRunRid", "live"), "\n");
  EXPECT_EQ(run("pppoeiaTestRun", "test"), "\n");
}

TEST_F(Harness, DebugSwitchTracesEachStep)
{
  const auto debug = [&](uint32_t value) {
    return answer(0, [&](const char* tty) { return pppoeia_test_debug("br0", value, tty); });
  };
  EXPECT_EQ(debug(7), "\n Test debug set to 1\n");
  set("pppoeiaTestSetCustomCidStr", "$hz2VLAN$hhPORT");
  testing::internal::CaptureStdout();
  run("pppoeiaTestRunCid", "test");
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
}

}  // namespace
