// Stacks on request, and what a crash leaves behind. Programs that end by a signal are the example, or forked from
// here; they do so under the sanitizers as well, because crash reports replace the sanitizer's own signal handlers.
#include "rte/BLL/core/self_debugger.h"

#include "rte/BLL/core/debugger/reporter.h"
#include "rte/BLL/core/log.h"
#include "rte/BLL/core/singleton.h"
#include "tests/support/child.h"
#include "tests/support/files.h"
#include "tests/system/private_node.h"
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
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
#include <sys/wait.h>
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
using testing::MatchesRegex;
using testing::Not;

// Whether a process may trace one that has allowed it, tried without the code under test.
bool tracingIsAllowed()
{
  prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY);
  return in_child([] { return ptrace(PTRACE_SEIZE, getppid(), nullptr, nullptr) == 0 ? 0 : 1; }) == 0;
}

struct SelfDebuggerStacks : testing::Test {
  void SetUp() override
  {
    if (!tracingIsAllowed())
      GTEST_SKIP() << "attaching to a process is not allowed here";
  }
  // Of a thread that can be shown. A machine that is busy enough may miss the bound; it does not do so again and again.
  static std::string stackOf(int32_t thread, SelfDebugger& by)
  {
    std::string stack;
    for (int tries = 0; tries < 5 && stack.empty(); ++tries)
      stack = by.backtraceOf(thread);
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
    const std::string stack = stackOf(tid, debugger);
    leave.release();
    waiting.join();
    const std::string begin = "\n#[0-9]+ +0x[0-9a-f]{12} ", end = " (at [^ ]+:[0-9]+|in [^ ]+)\n";
    EXPECT_THAT(stack, ContainsRegex(begin + "waitDeepInsideAPlugIn[(][^\n]*[)]" + end));
    EXPECT_THAT(stack, ContainsRegex(begin + "void waitBelow<[^\n]{142}[^\n]{143}[.]{3}" + end)) << "a long name";
    EXPECT_EQ(stack.find("#64 "), stack.npos);
    EXPECT_EQ(stack.ends_with("\n... and so on\n"), depth > 64);
    EXPECT_EQ(stack.find("\n#63 ") != stack.npos, depth > 64);
    EXPECT_THAT(stack, testing::StartsWith("#0  0x"));
    EXPECT_EQ(debugger.backtraceOf(tid), "") << "the thread has ended";
  }
}

struct keptStack_t : LogImpl {
  void writeMessageToLog(const logData_t& data) override { text += data.buffer.substr(data.buffer.find(' ') + 1); }
  std::string text;
};

// Several threads, and a forked child, which has a reporter of its own.
TEST_F(SelfDebuggerStacks, WhoAsksForItsOwnAtTheSameTimeGetsIt)
{
  const auto showsItself = [&] {
    return stackOf(gettid(), debugger).find("SelfDebugger::backtraceOf") != std::string::npos;
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] { EXPECT_TRUE(showsItself()); });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(in_child([&] { return showsItself() ? 7 : 0; }), 7 << 8);
  keptStack_t log;
  singleton<Log>::instance().reset(&log);
  for (int tries = 0; tries < 5 && log.text.empty(); ++tries) {
    const bool dumped = debugger.dumpBacktrace(gettid());
    EXPECT_EQ(dumped, !log.text.empty());
  }
  singleton<Log>::instance().reset(nullptr);
  EXPECT_THAT(log.text, testing::StartsWith("Stack of thread " + std::to_string(gettid()) + ":\n#0  0x"));
}

TEST_F(SelfDebuggerStacks, OnlyThreadsOfThisProcessAreShown)
{
  const pid_t other = fork();
  if (other == 0)
    _exit(pause());
  for (const int32_t none : {other, 1, 0, -1, INT32_MAX})
    EXPECT_EQ(debugger.backtraceOf(none), "") << none;
  EXPECT_FALSE(debugger.dumpBacktrace(other));
  kill(other, SIGKILL);
  waitpid(other, nullptr, 0);
}

std::atomic<int> signalsSeen;

// Nor does a host that ignores the end of its children.
TEST_F(SelfDebuggerStacks, SignalsOfTheHostNeitherDisturbNorAreLost)
{
  struct sigaction action = {}, before;
  action.sa_handler = [](int) { ++signalsSeen; };  // without SA_RESTART
  sigaction(SIGRTMIN, &action, &before);
  const sighandler_t usual = std::signal(SIGCHLD, SIG_IGN);
  std::atomic<bool> stop = false;
  int sent = 0;
  std::thread sender([&, target = pthread_self()] {
    for (; !stop; std::this_thread::yield())
      sent += sent - signalsSeen < 100 && pthread_sigqueue(target, SIGRTMIN, {}) == 0;
  });
  for (int i = 0; i < 10; ++i) {
    SelfDebugger fresh;
    EXPECT_NE(stackOf(gettid(), fresh), "");
  }
  stop = true;
  sender.join();
  sigaction(SIGRTMIN, &before, nullptr);
  std::signal(SIGCHLD, usual);
#if !defined(__SANITIZE_THREAD__)  // it keeps one signal of a kind
  EXPECT_EQ(signalsSeen, sent);
#endif
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
  EXPECT_EQ(debugger.backtraceOf(tid), "");
  EXPECT_NE(stackOf(gettid(), debugger), "") << "others are not affected";
  EXPECT_EQ(write(ends[1], "", 1), 1);
  stuck.join();  // it was let go
  close(ends[0]);
  close(ends[1]);
}

// Refuses a system call from now on, here and in what is forked, as a container's filter does.
bool forbid(unsigned call)
{
  sock_filter rules[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter{std::size(rules), rules};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

TEST(SelfDebugger, FailsSoonWhereTracingOrForkingIsForbidden)
{
  for (const unsigned call : {__NR_ptrace, __NR_clone}) {
    const int status = in_child([call] {
      if (!forbid(call))
        return 2;
      const auto begin = std::chrono::steady_clock::now();
      const auto files = entries("/proc/self/fd");
      SelfDebugger one;
      const bool stack = one.dumpBacktrace(gettid()), reporter = one.enableManualReports() || one.installCrashReports();
      const bool asTold = !stack && reporter == (call == __NR_ptrace) && one.areBacktraceReportsEnabled() == reporter;
      const bool clean = reporter || entries("/proc/self/fd") == files;
      return asTold && clean && std::chrono::steady_clock::now() - begin < 4s ? 0 : 1;
    });
    if (status == 2 << 8)
      GTEST_SKIP() << "no system call filters here";
    EXPECT_EQ(status, 0) << call;
  }
}

// Told by the process's size: where the stack was, something else may be by now.
TEST(SelfDebugger, AThreadsStackForSignalsEndsWithIt)
{
  size_t stack_size = 0;
  const auto pages_after = [&](int threads) {
    for (int started = 0; started < threads; ++started)
      std::thread([&] {
        SelfDebugger::prepareThread();
        stack_t stack{};
        EXPECT_EQ(sigaltstack(nullptr, &stack), 0);
        EXPECT_NE(stack.ss_flags, SS_DISABLE);
        stack_size = stack.ss_size;
      }).join();
    return std::stoul(file_text("/proc/self/statm"));
  };
  constexpr size_t threads = 64;
  const size_t before = pages_after(threads), after = pages_after(threads);
  EXPECT_LT(after, before + threads / 2 * stack_size / static_cast<size_t>(getpagesize()));
}

// What it is must neither hold up nor outlive the process, nor be reached by what ends it. A daemon may have closed its
// standard error.
TEST(SelfDebugger, TheReporterKeepsNothingOfItsProcess)
{
  for (const bool daemon : {false, true}) {
    const int open_here = open("/dev/null", O_RDONLY), error = dup(STDERR_FILENO);
    sigset_t blocked, before, after;
    sigfillset(&blocked);
    sigdelset(&blocked, SIGUSR1);
    pthread_sigmask(SIG_SETMASK, &blocked, &before);
    if (daemon)
      close(STDERR_FILENO);
    const reporterProcess_t reporter = forkReporter(std::chrono::steady_clock::now() + 2s);
    if (daemon)
      dup2(error, STDERR_FILENO);
    pthread_sigmask(SIG_SETMASK, &before, &after);
    EXPECT_TRUE(!sigismember(&after, SIGUSR1) && sigismember(&after, SIGTERM)) << "the host's mask is as it was";
    close(error);
    close(open_here);
    ASSERT_GT(reporter.pid, 0);
    EXPECT_GT(reporter.socket, STDERR_FILENO) << "where others print";
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no child is left to wait for";
    const std::string folder = "/proc/" + std::to_string(reporter.pid);
    EXPECT_EQ(entries(folder + "/fd"), 4);
    for (const char* file : {"/fd/0", "/fd/1", "/fd/2"})
      EXPECT_EQ(std::filesystem::read_symlink(folder + file) == "/dev/null", daemon || file[4] != '2');
    const std::string status = file_text(folder + "/status");
    EXPECT_THAT(status, HasSubstr("Name:\tbll-reporter\n"));
    EXPECT_THAT(status, ContainsRegex("\nSigBlk:\t0{16}\nSigIgn:\t0{12}5007\nSigCgt:\t[0-9a-f]{8}0{8}\n"));
    EXPECT_EQ(getsid(reporter.pid), reporter.pid);
    close(reporter.socket);
    for (int tries = 0; tries < 2000 && std::filesystem::exists(folder + "/exe"); ++tries)
      std::this_thread::sleep_for(1ms);
    EXPECT_FALSE(std::filesystem::exists(folder + "/exe")) << "with its process";
  }
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

// A whole report; `function` is on the crashed thread's stack. There may be threads that nobody knows of, a
// sanitizer's.
std::string reportOf(int signal, const std::string& address, const std::string& function)
{
  const std::string thread = "[0-9]+ [(][^\n]+[)]", frame = "  #[0-9]+ +0x[0-9a-f]{12} [^\n]*";
  const std::string frames = "(" + frame + "\n)*(  [.]{3} and so on\n)?";
  const std::string none = "  no stack: it could not be held still, or this process may not trace it\n";
  const bool stacks = tracingIsAllowed();
  return "[*]{3} Process [0-9]+, thread " + thread + " got signal " + std::to_string(signal) + " [(]" +
         strsignal(signal) + "[)], address " + address + "\n" +
         (stacks ? "(" + frame + "\n)*" + frame + function + "[^\n]*\n" + frames : none) + "([*]{3} Thread " + thread +
         "\n" + (stacks ? frame + "\n" + frames : none) + ")+[*]{3} End of the report on process [0-9]+\n";
}

TEST(SelfDebugger, ACrashLeavesAReportAndStillEndsTheProcess)
{
  const struct {
    const char* how;
    int signal;
    const char* address;
    const char* function;
  } cases[] = {{"null", SIGSEGV, "0x0", "writeThroughNull[(]"},
               {"call", SIGSEGV, "0x0", "callThroughNull[(][^\n]*\n  #[0-9]+ +0x[0-9a-f]{12} main"},
               {"abort", SIGABRT, "0x0", "giveUp[(]"},
               {"stack", SIGSEGV, "0x[1-9a-f][0-9a-f]+", "recurseForEver[(]"}};
  for (const auto& [how, signal, address, function] : cases) {
    SCOPED_TRACE(how);
    const end_t end = crash(how);
    EXPECT_TRUE(WIFSIGNALED(end.status) && WTERMSIG(end.status) == signal) << end.status;
    EXPECT_THAT(end.output, MatchesRegex(reportOf(signal, address, function)));
    EXPECT_THAT(end.output, ContainsRegex("Thread [0-9]+ [(]worker[)]\n  "));
    EXPECT_EQ(end.output.find("waitForWork(") != std::string::npos, tracingIsAllowed()) << "the other thread";
    EXPECT_THAT(end.output, Not(HasSubstr("onCrash"))) << "the handler is no news";
  }
}

const char* keptReport;

void keepInFile(pid_t, const std::string& line)
{
  std::ofstream(keptReport, std::ios::app) << line << "\n";
}

// Nor do other signals, and crashes of other threads, cut a report short that has begun.
TEST(SelfDebugger, EveryFatalSignalIsReportedOnceAndOnlyForItsProcess)
{
  const own_folder own;
  const std::string path = own.path + "/report";
  const auto begin = std::chrono::steady_clock::now();
  for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
    unlink(path.c_str());
    const int status = in_child([&] {
      keptReport = path.c_str();
      reportSink() = keepInFile;
      if (!SelfDebugger().installCrashReports() || !SelfDebugger().installCrashReports())
        return 1;
      const int forked = in_child([&] { return raise(signal); });
      if (!WIFSIGNALED(forked) || access(keptReport, F_OK) == 0)
        return 2;
      std::thread([signal, first = pthread_self()] {
        while (access(keptReport, F_OK) != 0)
          std::this_thread::yield();
        pthread_kill(first, SIGTERM);
        raise(signal);
      }).detach();
      return kill(getpid(), signal);
    });
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << signal << ": " << status;
    EXPECT_THAT(file_text(path), MatchesRegex(reportOf(signal, "0x0", "kill")));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 40s) << "nobody waits longer than a report takes";
}

// To the system log too, which is not waited for when it does not read.
TEST(SelfDebugger, ACrashIsToldToTheSystemLog)
{
  private_node& node = *new private_node;  // its reader outlives main()
  const std::string reason = geteuid() == 0 ? node.enter() : "needs root";
  if (!reason.empty())
    GTEST_SKIP() << reason;
  const std::string output = crash("abort").output;
  EXPECT_TRUE(node.wait_for_log("End of the report"));
  std::string logged;
  for (const std::string& line : node.logged())
    logged += line + "\n";
  EXPECT_EQ(logged, output);
  node.hold_log(true);
  EXPECT_THAT(crash("abort").output, HasSubstr("*** End of the report"));
  node.hold_log(false);
}

}  // namespace
