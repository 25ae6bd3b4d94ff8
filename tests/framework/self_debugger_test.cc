// Stacks on request, and what a crash leaves behind. The programs that crash are the example's.
#include "rte/BLL/core/self_debugger.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <semaphore>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using testing::HasSubstr;

std::binary_semaphore inside{0}, leave{0};

}  // namespace

// With a name of its own, to be found in a stack.
[[gnu::noinline]] void waitDeepInsideAPlugIn()
{
  inside.release();
  leave.acquire();
  asm volatile("");  // no tail call
}

namespace {

TEST(SelfDebugger, ShowsTheStackOfAThread)
{
  SelfDebugger debugger;
  EXPECT_FALSE(debugger.areBacktraceReportsEnabled());
  ASSERT_TRUE(debugger.enableManualReports());
  EXPECT_TRUE(debugger.areBacktraceReportsEnabled());
  int32_t tid = 0;
  std::thread waiting([&] {
    tid = gettid();
    waitDeepInsideAPlugIn();
  });
  inside.acquire();
  const std::string stack = debugger.backtraceOf(tid);
  leave.release();
  waiting.join();
  if (stack.empty())
    GTEST_SKIP() << "attaching to a process is not allowed here";
  EXPECT_THAT(stack, HasSubstr("waitDeepInsideAPlugIn() at self_debugger_test.cc:"));
  EXPECT_EQ(debugger.backtraceOf(tid), "") << "the thread has ended";
  EXPECT_FALSE(debugger.dumpBacktrace(1)) << "another process's";
  EXPECT_NE(debugger.backtraceOf(gettid()), "") << "one's own";
  EXPECT_TRUE(debugger.disableManualReports());
}

struct end_t {
  std::string output;
  int status;
};

end_t crash(const std::string& how)
{
  FILE* const pipe = popen(("exec 2>&1; exec " CRASH_REPORT_EXAMPLE " " + how).c_str(), "r");
  std::string output;
  std::array<char, 4096> block;
  for (size_t count; (count = fread(block.data(), 1, block.size(), pipe)) > 0;)
    output.append(block.data(), count);
  return {output, pclose(pipe)};
}

TEST(SelfDebugger, ACrashLeavesAReportAndStillEndsTheProcess)
{
  const struct {
    const char* how;
    int signal;
    const char* function;
  } cases[] = {
      {"null", SIGSEGV, "writeThroughNull("}, {"abort", SIGABRT, "giveUp()"}, {"stack", SIGSEGV, "recurseForEver("}};
  for (const auto& [how, signal, function] : cases) {
    const end_t end = crash(how);
    EXPECT_TRUE(WIFSIGNALED(end.status) && WTERMSIG(end.status) == signal) << how << ": " << end.status;
    EXPECT_THAT(end.output, HasSubstr(" got signal " + std::to_string(signal)));
    EXPECT_THAT(end.output, HasSubstr("*** End of the report"));
    if (end.output.find("#0") != std::string::npos) {  // else attaching is not allowed here
      EXPECT_THAT(end.output, HasSubstr(function)) << how;
    }
  }
}

}  // namespace
