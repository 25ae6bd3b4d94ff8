// A fault in one of the agent's threads, with the framework's crash reports installed, leaves a report.
#include "platform/ippc/client.h"
#include "platform/ippc/server.h"
#include "pppoeia/pppoeia.h"
#include "rte/BLL/core/report_sink.h"
#include "rte/BLL/core/self_debugger.h"
#include "tests/support/fake_kernel.h"

#include <csignal>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

volatile int* nowhere = nullptr;

int32_t fault_in_request(ippcFuncData*)
{
  *nowhere = 1;
  return 0;
}

int fault_in_wait(const packet_source&, int)
{
  *nowhere = 1;
  return 0;
}

void serve_one()
{
  const std::string path = testing::TempDir() + "crash_socket" + std::to_string(getpid());
  ippc::server server(path, fault_in_request);
  ippc::client client;
  std::vector<std::vector<unsigned char>> none;
  server.start();
  client.open(path);
  client.call(1, none, std::chrono::seconds(20));
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

// What the crash of a process that does `work` leaves behind.
std::string crash_report_of(void (*work)())
{
  report_path = testing::TempDir() + "thread_crash" + std::to_string(getpid());
  const pid_t child = fork();
  if (child == 0) {
    reportSink() = keep_in_file;
    if (SelfDebugger().installCrashReports())
      work();
    _exit(1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV) << status;
  std::ostringstream report;
  report << std::ifstream(report_path).rdbuf();
  unlink(report_path.c_str());
  return report.str();
}

TEST(ThreadCrash, InARequestIsReported)
{
  EXPECT_THAT(crash_report_of(serve_one), testing::HasSubstr(" got signal 11"));
}

TEST(ThreadCrash, InAWorkerIsReported)
{
  EXPECT_THAT(crash_report_of(work_once), testing::HasSubstr(" got signal 11"));
}

}  // namespace
