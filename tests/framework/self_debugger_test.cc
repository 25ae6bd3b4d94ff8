// Stacks on request, and what a crash leaves behind. Programs that end by a signal are the example, or forked from
// here; they do so under the sanitizers as well, because crash reports replace the sanitizer's own signal handlers.
#include "rte/BLL/core/self_debugger.h"

#include "rte/BLL/core/debugger/reporter.h"
#include "tests/support/files.h"
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <semaphore>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>
#include <vector>

// With names of their own, to be found in a stack.
[[gnu::noinline]] void waitDeepInsideAPlugIn(std::binary_semaphore& inside, std::binary_semaphore& leave)
{
  inside.release();
  leave.acquire();
  asm volatile("");  // no tail call
}

template <typename Name>
[[gnu::noinline]] void waitBelow(int depth, std::binary_semaphore& inside, std::binary_semaphore& leave)
{
  depth > 1 ? waitBelow<Name>(depth - 1, inside, leave) : waitDeepInsideAPlugIn(inside, leave);
  asm volatile("");
}

namespace {

using namespace std::chrono_literals;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

// Exit status of a child that runs `work`, as waitpid(2) gives it.
template <typename Work>
int inChild(Work work)
{
  const pid_t child = fork();
  if (child == 0)
    _exit(work());
  int status = -1;
  waitpid(child, &status, 0);
  return status;
}

// Whether a process may trace one that has allowed it, tried without the code under test.
bool tracingIsAllowed()
{
  prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY);
  return inChild([] { return ptrace(PTRACE_SEIZE, getppid(), nullptr, nullptr) == 0 ? 0 : 1; }) == 0;
}

struct SelfDebuggerStacks : testing::Test {
  void SetUp() override
  {
    if (!tracingIsAllowed())
      GTEST_SKIP() << "attaching to a process is not allowed here";
  }
  // The bound that callers are promised.
  std::string stackInTime(int32_t thread)
  {
    const auto begin = std::chrono::steady_clock::now();
    const std::string stack = debugger.backtraceOf(thread);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s) << thread;
    return stack;
  }
  // Of a thread that can be shown. A machine that is busy enough may miss the bound; it does not do so again and again.
  std::string stackOf(int32_t thread)
  {
    std::string stack;
    for (int tries = 0; tries < 3 && stack.empty(); ++tries)
      stack = stackInTime(thread);
    return stack;
  }
  SelfDebugger debugger;
};

using name_t = std::pair<std::array<std::array<std::array<std::array<unsigned long long, 1>, 2>, 3>, 4>,
                         std::vector<std::pair<std::vector<std::string>, std::vector<std::vector<std::string>>>>>;

TEST_F(SelfDebuggerStacks, AWaitingThreadIsShownAndGoesOn)
{
  for (const int depth : {1, 80}) {
    std::binary_semaphore inside{0}, leave{0};
    std::atomic<int32_t> tid = 0;
    std::thread waiting([&] {
      tid = gettid();
      waitBelow<name_t>(depth, inside, leave);
    });
    inside.acquire();
    const std::string stack = stackOf(tid);
    leave.release();
    waiting.join();
    const std::string begin = "\n#[0-9]+ +0x[0-9a-f]{12} ", end = " (at [^ ]+:[0-9]+|in [^ ]+)\n";
    EXPECT_THAT(stack, ContainsRegex(begin + "waitDeepInsideAPlugIn[(][^\n]*[)]" + end));
    EXPECT_THAT(stack, ContainsRegex(begin + "void waitBelow<[^\n]{142}[^\n]{143}[.]{3}" + end)) << "a long name";
    EXPECT_EQ(stack.find("#64 "), stack.npos);
    EXPECT_EQ(stack.ends_with("\n... and so on\n"), depth > 64);
    EXPECT_EQ(stack.find("\n#63 ") != stack.npos, depth > 64);
    EXPECT_THAT(stack, testing::StartsWith("#0  0x"));
    EXPECT_EQ(stackInTime(tid), "") << "the thread has ended";
  }
  EXPECT_THAT(stackOf(gettid()), HasSubstr("SelfDebugger::backtraceOf")) << "one's own";
}

TEST_F(SelfDebuggerStacks, OnlyThreadsOfThisProcessAreShown)
{
  int held[2];
  ASSERT_EQ(pipe(held), 0);
  const pid_t other = fork();
  if (other == 0) {
    char end;
    close(held[1]);
    _exit(static_cast<int>(read(held[0], &end, 1)));
  }
  for (const int32_t none : {other, 1, 0, -1, INT32_MAX})
    EXPECT_EQ(stackInTime(none), "") << none;
  EXPECT_FALSE(debugger.dumpBacktrace(other));
  close(held[0]);
  close(held[1]);
  waitpid(other, nullptr, 0);
}

TEST_F(SelfDebuggerStacks, SignalsOfTheHostDoNotDisturb)
{
  struct sigaction action = {}, before;
  action.sa_handler = [](int) {};  // without SA_RESTART
  sigaction(SIGALRM, &action, &before);
  const itimerval often{{0, 1000}, {0, 1000}}, never{};
  setitimer(ITIMER_REAL, &often, nullptr);
  for (int i = 0; i < 5; ++i)
    EXPECT_NE(stackOf(gettid()), "");
  setitimer(ITIMER_REAL, &never, nullptr);
  sigaction(SIGALRM, &before, nullptr);
}

TEST_F(SelfDebuggerStacks, AHostThatIgnoresTheEndOfItsChildrenGetsThem)
{
  const sighandler_t before = std::signal(SIGCHLD, SIG_IGN);
  EXPECT_NE(stackOf(gettid()), "");
  std::signal(SIGCHLD, before);
}

// What another thread has locked while the reporter is forked stays locked there.
TEST_F(SelfDebuggerStacks, AReporterForkedBesideThreadsThatLogAnswers)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizers' own heap is locked in what is forked beside threads that use it";
#endif
  std::atomic<bool> stop = false;
  std::vector<std::thread> loggers;
  for (int i = 0; i < 4; ++i)
    loggers.emplace_back([&] {
      while (!stop)
        syslog(LOG_DEBUG, "self_debugger_test");
    });
  int answers = 0;
  for (int i = 0; i < 10; ++i)
    answers += !SelfDebugger().backtraceOf(gettid()).empty();
  stop = true;
  for (std::thread& logger : loggers)
    logger.join();
  EXPECT_EQ(answers, 10);
}

// Ends when something comes through its pipe. Runs in the parent's memory, so it calls nothing that a sanitizer
// watches.
[[gnu::no_sanitize("thread", "address", "undefined")]] int waitForPipe(void* pipe)
{
  char end;
  syscall(SYS_read, *static_cast<int*>(pipe), &end, sizeof end);
  syscall(SYS_exit, 0);
  return 0;
}

// The parent of a vfork(2) cannot be stopped until its child is gone, like a thread deep in a driver.
TEST_F(SelfDebuggerStacks, AThreadThatDoesNotStopCostsNoMoreThanTheBound)
{
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  std::atomic<int32_t> tid = 0;
  std::thread stuck([&] {
    std::vector<char> stack(64 * 1024);
    tid = gettid();
    const int child = clone(waitForPipe, stack.data() + stack.size(), CLONE_VM | CLONE_VFORK | SIGCHLD, &ends[0]);
    waitpid(child, nullptr, 0);
  });
  const auto inClone = [&] {
    std::string line;
    std::ifstream status("/proc/self/task/" + std::to_string(tid) + "/status");
    while (std::getline(status, line))
      if (line.starts_with("State:"))
        return line.find('D') != std::string::npos;
    return false;
  };
  while (!inClone())
    std::this_thread::yield();
  EXPECT_EQ(stackInTime(tid), "");
  EXPECT_NE(stackOf(gettid()), "") << "others are not affected";
  EXPECT_EQ(write(ends[1], "", 1), 1);
  stuck.join();  // it was let go
  close(ends[0]);
  close(ends[1]);
}

// Refuses ptrace(2) from now on, here and in what is forked, as a container's filter does.
bool forbidTracing()
{
  sock_filter rules[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_ptrace, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter{std::size(rules), rules};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

TEST(SelfDebugger, FailsSoonWhereTracingIsForbidden)
{
  const int status = inChild([] {
    if (!forbidTracing())
      return 2;
    const auto begin = std::chrono::steady_clock::now();
    const bool failed = !SelfDebugger().dumpBacktrace(gettid());
    return failed && std::chrono::steady_clock::now() - begin < 2s ? 0 : 1;
  });
  EXPECT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 2)
    GTEST_SKIP() << "no system call filters here";
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

// What it is must neither hold up nor outlive the process, nor be reached by what ends it.
TEST(SelfDebugger, TheReporterKeepsNothingOfItsProcess)
{
  const int open_here = open("/dev/null", O_RDONLY);
  sigset_t blocked, before;
  sigfillset(&blocked);
  pthread_sigmask(SIG_SETMASK, &blocked, &before);
  const reporterProcess_t reporter = forkReporter(std::chrono::steady_clock::now() + 2s);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  close(open_here);
  ASSERT_GT(reporter.pid, 0);
  const std::string folder = "/proc/" + std::to_string(reporter.pid);
  EXPECT_EQ(entries(folder + "/fd"), 4);
  for (const char* file : {"/fd/0", "/fd/1"})
    EXPECT_EQ(std::filesystem::read_symlink(folder + file), "/dev/null");
  const std::string status = file_text(folder + "/status");
  EXPECT_THAT(status, HasSubstr("Name:\tbll-reporter\n"));
  EXPECT_THAT(status, ContainsRegex("\nSigBlk:\t0{16}\nSigIgn:\t0{12}5007\nSigCgt:\t[0-9a-f]{8}0{8}\n"));
  EXPECT_THAT(status, Not(HasSubstr("\nPPid:\t" + std::to_string(getpid()) + "\n"))) << "nobody's child to wait for";
  EXPECT_EQ(getsid(reporter.pid), reporter.pid);
  close(reporter.socket);
  for (int tries = 0; tries < 2000 && std::filesystem::exists(folder + "/exe"); ++tries)
    std::this_thread::sleep_for(1ms);
  EXPECT_FALSE(std::filesystem::exists(folder + "/exe")) << "with its process";
}

struct end_t {
  std::string output;
  int status;
};

// Its standard error comes at the end, when the reporter is gone as well.
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
  const bool stacks = tracingIsAllowed();
  const struct {
    const char* how;
    int signal;
    const char* function;
  } cases[] = {{"null", SIGSEGV, "writeThroughNull("},
               {"call", SIGSEGV, "callThroughNull()"},
               {"abort", SIGABRT, "giveUp()"},
               {"stack", SIGSEGV, "recurseForEver("}};
  for (const auto& [how, signal, function] : cases) {
    SCOPED_TRACE(how);
    const end_t end = crash(how);
    EXPECT_TRUE(WIFSIGNALED(end.status) && WTERMSIG(end.status) == signal) << end.status;
    const std::string address = signal == SIGABRT ? "0x0\n" : "0x[0-9a-f]+\n";
    EXPECT_THAT(end.output, ContainsRegex("[*]{3} Process [0-9]+, thread [0-9]+ [(][^)]+[)] got signal " +
                                          std::to_string(signal) + " [(][A-Z][a-z ]+[)], address " + address));
    EXPECT_THAT(end.output, ContainsRegex("\n[*]{3} Thread [0-9]+ [(]worker[)]\n  "));
    EXPECT_THAT(end.output, HasSubstr("\n*** End of the report"));
    if (!stacks)
      continue;
    EXPECT_THAT(end.output, HasSubstr(function));
    EXPECT_THAT(end.output, HasSubstr("waitForWork(")) << "the other thread";
    EXPECT_THAT(end.output, Not(HasSubstr("onCrash"))) << "the handler is no news";
  }
}

const char* keptReport;

void keepInFile(pid_t, const std::string& line)
{
  std::ofstream(keptReport, std::ios::app) << line << "\n";
}

TEST(SelfDebugger, EveryFatalSignalIsReportedOnceAndOnlyForItsProcess)
{
  const std::string path = testing::TempDir() + "crash_of_" + std::to_string(getpid());
  for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
    unlink(path.c_str());
    const int status = inChild([&] {
      keptReport = path.c_str();
      reportSink() = keepInFile;
      if (!SelfDebugger().installCrashReports() || !SelfDebugger().installCrashReports())
        return 1;
      const int forked = inChild([&] { return raise(signal); });
      if (!WIFSIGNALED(forked) || access(keptReport, F_OK) == 0)
        return 2;
      return raise(signal);
    });
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << signal << ": " << status;
    const std::string report = file_text(path);
    EXPECT_THAT(report, HasSubstr(" got signal " + std::to_string(signal)));
    EXPECT_EQ(report.find("***"), report.rfind("*** Process"));
  }
  unlink(path.c_str());
}

}  // namespace
