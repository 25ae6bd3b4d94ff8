// A fault in a bridge's worker, with the framework's crash reports installed, leaves a report.
#include "pppoeia/pppoeia.h"
#include "rte/BLL/core/debugger/reporter.h"
#include "rte/BLL/core/self_debugger.h"
#include "tests/support/child.h"
#include "tests/support/fake_kernel.h"
#include "tests/support/files.h"

#include <csignal>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

volatile int* nowhere = nullptr;

// A sanitizer would report it first, and end the process in its own way.
__attribute__((no_sanitize("undefined"))) int fault_in_wait(const packet_source&, int)
{
  *nowhere = 1;
  return 0;
}

void work_once()
{
  fake_kernel fake;
  static kernel_ops faulty = *kernel;
  faulty.wait_readable = fault_in_wait;
  kernel = &faulty;
  pppoeia_init();
  pppoeia_bridge_add("br0", 1);
  sleep(20);
}

std::string report_path;

void keep_in_file(pid_t, const std::string& line)
{
  std::ofstream(report_path, std::ios::app) << line << "\n";
}

TEST(ThreadCrash, InAWorkerIsReported)
{
  report_path = testing::TempDir() + "thread_crash" + std::to_string(getpid());
  const int status = in_child([] {
    reportSink() = keep_in_file;
    if (SelfDebugger().installCrashReports())
      work_once();
    return 1;
  });
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV) << status;
  const std::string report = file_text(report_path);
  unlink(report_path.c_str());
  EXPECT_THAT(report, testing::HasSubstr(" got signal 11"));
}

}  // namespace
