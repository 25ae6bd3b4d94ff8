// The log's queue against a daemon that reads, reads too slowly, or not at all. The process that logs is a child; its
// syslog(), below, sends to a socket that the test reads, and like the C library's it waits for room there, with a
// lock.
#include "base/system_log.h"
#include "tests/support/files.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

int log_socket = -1;
std::mutex in_syslog;
std::atomic<unsigned> syslog_done = 0;
std::atomic<bool> stuck = false;  // in a call that waits for the daemon

}  // namespace

extern "C" void syslog(int priority, const char* format, ...)
{
  char line[2000];
  va_list arguments;
  va_start(arguments, format);
  const auto size = static_cast<size_t>(vsnprintf(line, sizeof line, format, arguments));
  va_end(arguments);
  if (priority == LOG_WARNING)
    line[0] = '!';
  const std::lock_guard lock(in_syslog);
  stuck = send(log_socket, line, size, MSG_DONTWAIT | MSG_NOSIGNAL) < 0;
  if (stuck)
    send(log_socket, line, size, MSG_NOSIGNAL);
  ++syslog_done;
}

namespace {

using steady = std::chrono::steady_clock;
constexpr char prefix[] = "=";
constexpr char no_line[] = "";
constexpr char too_busy[] = "the machine is too busy";

class logging_process {
public:
  // Runs `scenario` in a process with a queue; it ends by exit(0), unless it ends in another way itself.
  explicit logging_process(const std::function<void(logging_process&)>& scenario)
  {
    socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, log_.data());
    socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, hand_.data());
    [[maybe_unused]] const int ignored = pipe(error_.data());
    pid_ = fork();
    close(log_[pid_ == 0]), close(hand_[pid_ == 0]), close(error_[pid_ != 0]);
    if (pid_ != 0)
      return;
    alarm(60);
    dup2(error_[1], STDERR_FILENO);
    close(error_[1]);
    log_socket = log_[0];
    constexpr int small = 4096;
    setsockopt(log_socket, SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    system_log_begin(prefix);
    scenario(*this);
    exit(0);
  }
  ~logging_process() { close(log_[1]), close(hand_[1]), close(error_[0]); }
  logging_process(const logging_process&) = delete;
  logging_process& operator=(const logging_process&) = delete;

  // A hand-shake: what the one side tells, the other is told; -1 if it has ended instead.
  void tell(int number = 0) const { send(hand_[pid_ != 0], &number, sizeof number, MSG_NOSIGNAL); }
  int told() const
  {
    int number = -1;
    return recv(hand_[pid_ != 0], &number, sizeof number, 0) > 0 ? number : -1;
  }

  // For the test, which is the daemon: the next line, or no_line when all who logged have ended.
  std::string read_line()
  {
    std::array<char, 2000> line;
    const ssize_t size = recv(log_[1], line.data(), line.size(), 0);
    const auto before = std::exchange(last_read_, steady::now());
    longest_pause_ = std::max(longest_pause_, last_read_ - before);
    return size > 0 ? std::string(line.data(), static_cast<size_t>(size)) : no_line;
  }
  std::vector<std::string> read_all()
  {
    std::vector<std::string> lines;
    for (std::string line; (line = read_line()) != no_line;)
      lines.push_back(line);
    return lines;
  }
  int wait() const
  {
    int status = -1;
    waitpid(pid_, &status, 0);
    return status;
  }
  std::string error_output() const
  {
    std::array<char, 2000> text;
    const ssize_t size = read(error_[0], text.data(), text.size());
    return std::string(text.data(), static_cast<size_t>(std::max<ssize_t>(size, 0)));
  }
  steady::duration longest_pause() const { return longest_pause_; }

private:
  std::array<int, 2> log_, hand_, error_;
  pid_t pid_;
  steady::time_point last_read_ = steady::now();
  steady::duration longest_pause_{};
};

void log_number(unsigned number)
{
  const std::string fill(number % 70, '.');
  system_log(LOG_INFO, (std::to_string(number) + " " + fill).c_str());
}

unsigned log_numbers(unsigned from, unsigned to)
{
  for (unsigned number = from; number < to; ++number)
    log_number(number);
  return to;
}

// Until the daemon's socket is full and the writer waits for it.
unsigned log_until_stuck(unsigned number)
{
  for (stuck = false; !stuck; ++number) {
    const unsigned done = syslog_done;
    log_number(number);
    while (!stuck && syslog_done == done)
      std::this_thread::yield();
  }
  return number;
}

// Reads lines with ascending numbers, and the lines that tell how many of them are missing.
struct follower {
  void take(const std::string& line)
  {
    unsigned number = 0;
    ++lines;
    if (sscanf(line.c_str(), "!%u messages lost.", &number) == 1)
      ++gaps, next += number;
    else if (sscanf(line.c_str(), "%u ", &number) != 1 || number != next++)
      ADD_FAILURE() << '"' << line << "\" came in place of " << next - 1;
  }
  void take_all(const std::vector<std::string>& all)
  {
    for (const std::string& line : all)
      take(line);
  }
  unsigned next = 0, lines = 0, gaps = 0;
};

constexpr std::chrono::milliseconds still(50);

// What a scenario logs while the daemon reads on and on. It is repeated when the machine was too busy to tell: no line
// came for half of the time after which the daemon counts as stopped. Nothing if it always was.
std::optional<std::vector<std::string>> lines_undisturbed(const std::function<void(logging_process&)>& scenario)
{
  for (int tries = 0; tries < 20; ++tries) {
    logging_process process(scenario);
    auto lines = process.read_all();
    EXPECT_EQ(process.wait(), 0);
    if (process.longest_pause() < still || testing::Test::HasFailure())
      return lines;
  }
  return std::nullopt;
}

TEST(SystemLog, AStoppedDaemonHoldsNobodyAndEachLostLineIsCounted)
{
  logging_process process([](const logging_process& self) {
    unsigned number = 0;
    for (int stop = 0; stop < 3; ++stop) {
      number = log_until_stuck(number);
      number = log_numbers(number, number + 30'000);
      self.tell(static_cast<int>(number));
      self.told();
    }
  });
  follower daemon;
  for (unsigned stop = 1; stop <= 3; ++stop) {
    const int number = process.told();
    ASSERT_GT(number, 0) << "who logs is held";
    while (static_cast<int>(daemon.next) < number && !HasFailure())
      daemon.take(process.read_line());
    EXPECT_EQ(static_cast<int>(daemon.next), number);
    EXPECT_EQ(daemon.gaps, stop) << "one gap, one line";
    EXPECT_GT(daemon.lines, stop * 2'000) << "what fits is kept";
    process.tell();
  }
  EXPECT_EQ(process.read_line(), no_line);
  EXPECT_EQ(process.wait(), 0);
  EXPECT_EQ(process.error_output(), "");
}

// And an orderly end writes what waits.
TEST(SystemLog, LosesNothingWhileTheDaemonReadsAndKeepsOrderAcrossThreads)
{
  constexpr unsigned count = 20'000;
  const auto lines = lines_undisturbed([](const logging_process&) {
    std::mutex order;
    unsigned next = 0;
    const auto log_one = [&] {
      const std::lock_guard lock(order);
      if (next < count)
        log_number(next++);
      return next < count;
    };
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i)
      threads.emplace_back([&] {
        while (log_one()) {
        }
      });
  });
  if (!lines)
    GTEST_SKIP() << too_busy;
  follower daemon;
  daemon.take_all(*lines);
  EXPECT_EQ(daemon.next, count);
  EXPECT_EQ(daemon.gaps, 0u);
}

TEST(SystemLog, ManyThreadsThatWaitForRoomLoseNothing)
{
  constexpr unsigned threads = 8, count = 3'000;
  const auto lines = lines_undisturbed([](const logging_process&) {
    std::vector<std::jthread> all;
    for (unsigned thread = 0; thread < threads; ++thread)
      all.emplace_back([thread] {
        for (unsigned number = 0; number < count; ++number) {
          const std::string fill(thread % 2 == 0 ? 10 : 1'500, '.');  // small ones do not starve long ones
          system_log(LOG_INFO, (std::to_string(thread) + " " + std::to_string(number) + fill).c_str());
        }
      });
  });
  if (!lines)
    GTEST_SKIP() << too_busy;
  std::array<unsigned, threads> next{};
  for (const std::string& line : *lines) {
    unsigned thread = 0, number = 0;
    if (sscanf(line.c_str(), "%u %u", &thread, &number) != 2 || number != next.at(thread)++)
      ADD_FAILURE() << "unexpected: " << line.substr(0, 40);
  }
  EXPECT_EQ(lines->size(), threads * count);
}

TEST(SystemLog, AStoppedDaemonDoesNotHoldTheEndWhichTellsHowManyAreLost)
{
  constexpr unsigned count = 10'000;
  logging_process process([](const logging_process&) { log_numbers(0, count); });
  EXPECT_EQ(process.wait(), 0);
  const size_t written = process.read_all().size();
  EXPECT_GT(written, 0u);
  EXPECT_EQ(process.error_output(), "=" + std::to_string(count - written) + " messages lost.\n");
}

TEST(SystemLog, AChildForkedWhileTheDaemonIsStoppedIsNotHeld)
{
  logging_process process([](const logging_process&) {
    log_until_stuck(0);
    const pid_t child = fork();
    if (child == 0) {
      alarm(20);
      log_number(0);
      fork() == 0 ? log_number(0) : system_log_end();
      _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    _exit(status == 0 ? 7 : 8);
  });
  const int status = process.wait();
  EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 7);
}

TEST(SystemLog, ChildrenForkedWhileOthersLogWriteTheirLinesAndHarmNone)
{
  constexpr int children = 30;
  auto lines = lines_undisturbed([](const logging_process&) {
    unsigned number = 0;
    std::jthread logger([&](const std::stop_token& stop) {
      while (!stop.stop_requested())
        log_number(number++);
    });
    for (int i = 0; i < children; ++i)
      if (const pid_t child = fork(); child == 0) {
        system_log(LOG_INFO, "child");
        _exit(0);
      } else {
        waitpid(child, nullptr, 0);
      }
  });
  if (!lines)
    GTEST_SKIP() << too_busy;
  EXPECT_EQ(std::erase(*lines, "child"), static_cast<size_t>(children));
  follower daemon;
  daemon.take_all(*lines);
  EXPECT_EQ(daemon.gaps, 0u);
}

TEST(SystemLog, ItsThreadLeavesOnlyTheSignalsOfTheEndToOthers)
{
  logging_process process([](const logging_process&) {
    for (system_log(LOG_INFO, "it runs"); syslog_done == 0;)
      std::this_thread::yield();
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
      const std::string status = file_text(entry.path() / "status");
      if (status.find("Name:\tlog-writer\n") != std::string::npos)
        system_log(LOG_INFO, status.substr(status.find("SigBlk:"), 24).c_str());
    }
  });
  process.read_line();
  EXPECT_EQ(process.read_line(), "SigBlk:\t0000000000004002");
}

}  // namespace
