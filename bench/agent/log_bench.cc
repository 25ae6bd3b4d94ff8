// What a log line costs who logs, by the queue (base/system_log.h) and by bare syslog(3), with a log daemon of the
// bench's own that reads or is stopped. Needs root: it has a /dev/log of its own. Each figure is the median of rounds
// that take turns, each in a process of its own. Usage: agent_log_bench [ROUNDS]
#include "base/system_log.h"
#include "pppoeia/identifiers/identifiers.h"
#include "pppoeia/kernel/frame_buffers.h"
#include "pppoeia/log.h"
#include "tests/support/records_fixture.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using steady = std::chrono::steady_clock;

double ns_since(steady::time_point begin)
{
  return std::chrono::duration<double, std::nano>(steady::now() - begin).count();
}

double median(std::vector<double> values)
{
  std::ranges::sort(values);
  return values[values.size() / 2];
}

void check(int result, const char* what)
{
  if (result >= 0)
    return;
  std::perror(what);
  std::exit(1);
}

// Reads /dev/log until it is killed.
pid_t start_daemon()
{
  check(unshare(CLONE_NEWNS), "namespace");
  check(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "private mounts");
  check(mount("tmpfs", "/dev", "tmpfs", 0, nullptr), "/dev");
  const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address{AF_UNIX, "/dev/log"};
  check(bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), "/dev/log");
  const pid_t daemon = fork();
  if (daemon != 0)
    return daemon;
  for (char line[8192];;)
    if (recv(socket, line, sizeof line, 0) < 0)
      _exit(1);
}

void log_line()
{
  pppoeia_log(log_debug, "<%s> Port %u: frame of %d bytes, code %s, client %s.", "br0", 17u, 64, "PADI",
              "02:11:22:33:44:55");
}

// One PADI of an untrusted line, over and over.
class frame_load {
public:
  frame_load() : services_{identifiers_, [](unsigned char*) { return -1; }}, record_(test_frame{}.build())
  {
    bridge_.port(1, 1, 0);
    buffer_.resize(bridge_->buffer_size + frame_growth_max);
  }
  void process()
  {
    std::ranges::copy(record_, buffer_.begin());
    frame_process(*bridge_,
                  {buffer_.data(), static_cast<uint32_t>(record_.size()), static_cast<uint32_t>(buffer_.size())},
                  services_);
  }

private:
  test_bridge bridge_;
  builder_identifiers identifiers_;
  frame_services services_;
  byte_string record_, buffer_;
};

// ns of one of `work` among `count` in a row, the median of `bursts` with a rest between them.
double in_bursts(int bursts, int count, const std::function<void()>& work)
{
  std::vector<double> times;
  for (int i = 0; i < bursts; ++i) {
    const auto begin = steady::now();
    for (int n = 0; n < count; ++n)
      work();
    times.push_back(ns_since(begin) / count);
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
  }
  return median(times);
}

struct bench_case {
  const char* name;
  bool queue, stopped;
  int32_t level;
  double (*run)();
};

double single_lines()
{
  return in_bursts(100, 1, log_line);
}
double line_bursts()
{
  return in_bursts(100, 40, log_line);
}
double many_lines()
{
  return in_bursts(1, 100'000, log_line);
}
double paced_frames()
{
  frame_load load;
  return in_bursts(100, 1, [&] { load.process(); });
}
double many_frames()
{
  frame_load load;
  return in_bursts(1, 5'000, [&] { load.process(); });
}
double lines_when_full()
{
  for (int i = 0; i < 10'000; ++i)
    log_line();
  return many_lines();
}
double frames_when_full()
{
  for (int i = 0; i < 10'000; ++i)
    log_line();
  return many_frames();
}

constexpr bench_case cases[] = {
    {"a line below the level", true, false, log_info, many_lines},
    {"a line now and then, syslog", false, false, log_debug, single_lines},
    {"a line now and then, queue", true, false, log_debug, single_lines},
    {"40 lines, then a rest, syslog", false, false, log_debug, line_bursts},
    {"40 lines, then a rest, queue", true, false, log_debug, line_bursts},
    {"100,000 lines in a row, syslog", false, false, log_debug, many_lines},
    {"100,000 lines in a row, queue", true, false, log_debug, many_lines},
    {"daemon stopped, a line that is lost", true, true, log_debug, lines_when_full},
    {"level 7, a PADI now and then, syslog", false, false, log_debug, paced_frames},
    {"level 7, a PADI now and then, queue", true, false, log_debug, paced_frames},
    {"level 7, a storm of PADIs, syslog", false, false, log_debug, many_frames},
    {"level 7, a storm of PADIs, queue", true, false, log_debug, many_frames},
    {"level 7, a storm, daemon stopped", true, true, log_debug, frames_when_full},
};

double run_case(const bench_case& what, pid_t daemon)
{
  int ends[2];
  check(pipe(ends), "pipe");
  if (what.stopped)
    kill(daemon, SIGSTOP);
  const pid_t child = fork();
  if (child == 0) {
    if (what.queue)
      system_log_begin("");
    pppoeia_log_level = what.level;
    const double result = what.run();
    _exit(write(ends[1], &result, sizeof result) != sizeof result);
  }
  double result = 0;
  close(ends[1]);
  check(static_cast<int>(read(ends[0], &result, sizeof result)), what.name);
  close(ends[0]);
  waitpid(child, nullptr, 0);
  kill(daemon, SIGCONT);
  return result;
}

}  // namespace

int main(int argc, char** argv)
{
  const int rounds = argc > 1 ? std::max(std::atoi(argv[1]), 1) : 11;
  const pid_t daemon = start_daemon();
  std::vector<std::vector<double>> results(std::size(cases));
  for (int round = 0; round < rounds; ++round)
    for (size_t i = 0; i < std::size(cases); ++i)
      results[i].push_back(run_case(cases[i], daemon));
  kill(daemon, SIGKILL);
  waitpid(daemon, nullptr, 0);
  for (size_t i = 0; i < std::size(cases); ++i)
    std::printf("%-40s %10.1f ns\n", cases[i].name, median(results[i]));
}
