// A dump that nobody can read. What it tells is the model's.
#include "base/caller.h"
#include "pppoeia/pppoeia.h"
#include "tests/support/api_fixture.h"
#include "tests/support/syslog_capture.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace {

// A terminal that cannot be opened, or not with the rights of whoever asked, loses the report only.
TEST(Dump, ThatCannotBeWrittenIsLogged)
{
  const api_fixture agent;
  const auto logged = [](const std::string& tty) {
    syslog_take();
    EXPECT_EQ(pppoeia_dump("br0", 0, tty.c_str()), 0);
    std::string lines;
    for (const syslog_line& line : syslog_take())
      lines += std::to_string(line.priority) + line.text;
    return lines;
  };
  EXPECT_EQ(logged(""), "");
  EXPECT_EQ(logged("/dev/null"), "");
  EXPECT_EQ(logged("/nonexistent/tty"), "2\t PPPoEIA: Error opening tty file for writing: /nonexistent/tty\n");
  const caller_scope unknown(nullptr);
  EXPECT_EQ(logged("/dev/null"), "2\t PPPoEIA: Error opening tty file for writing: /dev/null\n");
}

}  // namespace
