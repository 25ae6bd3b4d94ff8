// The agent's worker beside bare loops on the same TAP device, in turn, in one run. Needs root. Prints frames per
// second, CPU time a frame (of the thread under test) and ratios to loop (a); a paced run at 20,000 frames per second
// with latencies; and a storm of 10,000 clients on 64 ports at 300,000 frames per second, with counters read over the
// agent's socket all along.
//
// Usage: whole_path_bench [--seconds N]     N for each measurement, default 2
//        whole_path_bench --worker CLIENTS [--rate N] [--seconds N]
//                                           the worker alone, a turn for each line of the standard input: CPU time a
//                                           frame in ns, frames sent and not taken; status_cost.py compares two builds
#include "bench/agent/bare_loops.h"
#include "bench/agent/cores.h"
#include "bench/agent/tap_load.h"
#include "platform/ippc/client.h"
#include "platform/ippc/server.h"
#include "pppoeia/agent/worker.h"
#include "pppoeia/identifiers/identifiers.h"
#include "pppoeia/kernel/kernel.h"
#include "pppoeia/operations/dispatcher.h"
#include "pppoeia/status/bridge_status.h"
#include "pppoeia/text.h"
#include "tests/support/records_fixture.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace {

double cpu_seconds(pthread_t thread)
{
  clockid_t clock;
  timespec time{};
  if (pthread_getcpuclockid(thread, &clock) == 0)
    clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

struct measured {
  load_result load;
  double cpu = 0;       // seconds of the thread under test
  uint64_t frames = 0;  // that it sent while the load ran
  uint64_t taken = 0;   // the worker only: with those that waited when the load ended

  double frames_per_second() const { return static_cast<double>(frames) / load.seconds; }
  double cpu_us() const { return cpu * 1e6 / static_cast<double>(std::max<uint64_t>(frames, 1)); }
};

// Puts the loop under test on its core and lets it reach its wait, so that no round has that in its figures.
void settle(pthread_t loop)
{
  keep_on(loop, core::loop);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

struct bare_loop {
  void (*run)(const packet_source&, const std::atomic<bool>&, std::atomic<uint64_t>&);
  bool ring;
};

constexpr bare_loop loop_a{bare_select_loop, false};
constexpr bare_loop loop_b{bare_batch_loop, false};
constexpr bare_loop loop_c{bare_batch_loop, true};

// Runs a bare loop under load.
measured run_bare(tap_load& tap, const bare_loop& loop, const load_settings& settings)
{
  std::atomic<bool> stop{false};
  std::atomic<uint64_t> frames{0};
  const int fd = tap.packet_socket();
  const packet_source source{fd, loop.ring ? kernel_linux.ring_open(fd) : nullptr};
  std::thread thread([&] { loop.run(source, stop, frames); });
  settle(thread.native_handle());
  measured result;
  result.load = tap.run(settings);
  result.cpu = cpu_seconds(thread.native_handle());
  result.frames = frames;
  stop = true;
  thread.join();
  kernel_linux.ring_close(source.ring);
  kernel_linux.close(fd);
  return result;
}

// The agent's worker on a bridge of its own.
class served_bridge {
public:
  served_bridge(const tap_load& tap, const char* format, unsigned ports) : bridge_(ports + 1)
  {
    for (uint32_t id = 1; id <= ports; ++id)
      bridge_.port(id, 1, 1).vsa_circuit_id_mode = format ? 2 : 0;
    if (format)
      text_copy(bridge_->pppoeia_cid_format, format);
    text_copy(bridge_->sysname, "node-17");
    bridge_->sock = tap.packet_socket();
    bridge_->ring = kernel_linux.ring_open(bridge_->sock);
    bridge_->status = bridge_statuses::open("bench", ports + 1);
    worker_thread_start(*bridge_);
    settle(bridge_->thread);
  }
  ~served_bridge()
  {
    bridge_->stop = 1;
    worker_thread_join(*bridge_);
    bridge_statuses::close(bridge_->status);
    kernel_linux.ring_close(bridge_->ring);
    kernel_linux.close(bridge_->sock);
  }
  served_bridge(const served_bridge&) = delete;
  served_bridge& operator=(const served_bridge&) = delete;

  measured run(tap_load& tap, const load_settings& settings)
  {
    const double cpu = cpu_seconds(bridge_->thread);
    const uint64_t before = frames();
    measured result;
    result.load = tap.run(settings);
    result.cpu = cpu_seconds(bridge_->thread) - cpu;
    result.frames = frames() - before;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    result.taken = frames() - before;
    return result;
  }

  pppoeia_bridge& operator*() { return *bridge_; }

private:
  uint64_t frames()
  {
    const bridge_lock lock(*bridge_);
    return bridge_->stats.padi;
  }

  test_bridge bridge_;
};

// Runs the agent's worker under load; `meanwhile` runs beside it.
measured run_worker(tap_load& tap, const char* format, const load_settings& settings,
                    const std::function<void(pppoeia_bridge&, const std::atomic<bool>&)>& meanwhile = {})
{
  served_bridge bridge(tap, format, settings.ports);
  std::atomic<bool> done{false};
  std::thread beside;
  if (meanwhile)
    beside = std::thread([&] {
      keep_nowhere(pthread_self());
      meanwhile(*bridge, done);
    });
  const measured result = bridge.run(tap, settings);
  done = true;
  if (beside.joinable())
    beside.join();
  return result;
}

constexpr char five_macros[] = "$SYSNAME eth $CHASSIS/$PORT:$VLAN $INTF";

void print_row(const char* name, const measured& result, const measured& yardstick)
{
  std::printf("%-34s %10.0f frames/s %6.2fx   %6.3f us CPU %6.2fx\n", name, result.frames_per_second(),
              result.frames_per_second() / yardstick.frames_per_second(), result.cpu_us(),
              result.cpu_us() / yardstick.cpu_us());
}

void full_load(tap_load& tap, double seconds)
{
  const load_settings settings{.seconds = seconds, .counted = false};
  for (int round = 0; round < 2; ++round) {
    std::printf("Full load, round %d\n", round + 1);
    const measured a = run_bare(tap, loop_a, settings);
    print_row("(a) select, recv, send", a, a);
    print_row("worker, default identifiers", run_worker(tap, nullptr, settings), a);
    print_row("(b) recvmmsg, sendmmsg", run_bare(tap, loop_b, settings), a);
    print_row("(c) mapped ring, sendmmsg", run_bare(tap, loop_c, settings), a);
    print_row("worker, format of five macros", run_worker(tap, five_macros, settings), a);
  }
}

std::vector<double> sorted(const std::vector<measured>& results, const std::function<double(const measured&)>& of)
{
  std::vector<double> values;
  for (const measured& result : results)
    values.push_back(of(result));
  std::ranges::sort(values);
  return values;
}

// The machine's own stalls make the 99th percentile of most rounds: the quietest round says what the loop adds.
void print_paced(const char* name, const std::vector<measured>& results)
{
  const size_t middle = results.size() / 2;
  const auto p99 = sorted(results, [](const measured& r) { return r.load.latency_p99_us; });
  std::printf("%-34s %6.3f us CPU   latency p50 %7.1f us, p99 %7.1f us, in the quietest round %7.1f us\n", name,
              sorted(results, [](const measured& r) { return r.cpu_us(); })[middle],
              sorted(results, [](const measured& r) { return r.load.latency_p50_us; })[middle], p99[middle], p99[0]);
}

void paced_load(tap_load& tap, double seconds)
{
  constexpr int rounds = 31;
  const load_settings settings{.seconds = seconds, .rate = 20'000, .timed = true, .burst = 1};
  std::vector<measured> bare, worker;
  for (int round = 0; round < rounds; ++round) {
    bare.push_back(run_bare(tap, loop_a, settings));
    worker.push_back(run_worker(tap, nullptr, settings));
  }
  std::printf("20,000 frames/s, medians of %d rounds\n", rounds);
  print_paced("(a) select, recv, send", bare);
  print_paced("worker, default identifiers", worker);
}

long resident_kib()
{
  long pages = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> pages >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// Reads the bridge's counters as management does, by a request to the agent's server, each millisecond; the longest
// that an answer took.
class counter_reader {
public:
  void operator()(pppoeia_bridge& bridge, const std::atomic<bool>& done)
  {
    pppoeia_state state{};
    state.bridges = &bridge;
    pppoeia_globals = &state;
    {
      const std::string path = "/tmp/whole-path-bench." + std::to_string(getpid());
      ippc::server server(path, pppoeia_ippc_dispatcher);
      ippc::client client;
      if (server.start() != 0 || !client.open(path))
        throw std::runtime_error("no server for the counter reads");
      while (!done)
        read_once(client);
    }
    pppoeia_globals = nullptr;
  }
  double longest_us = 0;
  uint64_t reads = 0;

private:
  void read_once(ippc::client& client)
  {
    constexpr uint16_t bridge_stats_get = 27;
    std::vector<std::vector<unsigned char>> arguments = {{'b', 'r', '0', 0},
                                                         std::vector<unsigned char>(sizeof(pppoeia_stats))};
    const auto before = std::chrono::steady_clock::now();
    const ippc::call_reply reply = client.call(bridge_stats_get, arguments, std::chrono::seconds(5));
    if (reply.error != ippc::call_error::none || reply.result != 0)
      throw std::runtime_error("a counter read failed");
    const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - before;
    longest_us = std::max(longest_us, took.count());
    ++reads;
    const timespec pause{0, 1'000'000};
    nanosleep(&pause, nullptr);
  }
};

constexpr load_settings storm_settings{.burst = 32, .ports = 64, .clients = 10'000};

void storm(tap_load& tap, double seconds, double rate)
{
  load_settings settings = storm_settings;
  settings.seconds = seconds;
  settings.rate = rate;
  counter_reader reader;
  const long before_kib = resident_kib();
  const measured result =
      run_worker(tap, nullptr, settings, [&](pppoeia_bridge& b, const std::atomic<bool>& d) { reader(b, d); });
  std::printf("sent %llu in %.2f s, given back %llu, lost %llu, counted %llu; %llu counter reads, the longest %.0f us; "
              "memory %+ld KiB\n",
              static_cast<unsigned long long>(result.load.sent), result.load.seconds,
              static_cast<unsigned long long>(result.load.returned),
              static_cast<unsigned long long>(result.load.sent - result.load.returned),
              static_cast<unsigned long long>(result.frames), static_cast<unsigned long long>(reader.reads),
              reader.longest_us, resident_kib() - before_kib);
}

void storms(tap_load& tap, double seconds)
{
  for (int round = 0; round < 3; ++round) {
    std::printf("Storm at 300,000 frames/s, round %d: ", round + 1);
    storm(tap, seconds, 300'000);
    std::printf("Storm at full speed, round %d: ", round + 1);
    storm(tap, seconds, 0);
  }
}

// A frame that the loop under test took and that did not come back was lost behind it.
void print_given_back(const char* name, const measured& sum, const measured& yardstick)
{
  std::printf("  %-34s %9llu sent, %9llu taken, %9llu given back, %.2fx\n", name,
              static_cast<unsigned long long>(sum.load.sent), static_cast<unsigned long long>(sum.frames),
              static_cast<unsigned long long>(sum.load.returned),
              static_cast<double>(sum.load.returned) / static_cast<double>(yardstick.load.returned));
}

void add(measured& sum, const measured& round)
{
  sum.load.sent += round.load.sent;
  sum.load.returned += round.load.counted ? round.load.returned : round.frames;
  sum.frames += round.frames;
}

// The worker and the bare loops in turn, without the counter reads, which would cost one of them. A sender that also
// reads what comes back sets the pace; one that leaves it to the device is ahead of every loop.
void storms_compared(tap_load& tap, double seconds, bool counted)
{
  constexpr int rounds = 24;
  load_settings settings = storm_settings;
  settings.seconds = seconds;
  settings.counted = counted;
  measured worker, loop_b_sum, loop_c_sum;
  for (int round = 0; round < rounds; ++round) {
    add(worker, run_worker(tap, nullptr, settings));
    add(loop_b_sum, run_bare(tap, loop_b, settings));
    add(loop_c_sum, run_bare(tap, loop_c, settings));
  }
  std::printf("Storm at full speed, the sender %s, %d rounds\n", counted ? "reading too" : "only sending", rounds);
  print_given_back("(b) recvmmsg, sendmmsg", loop_b_sum, loop_b_sum);
  print_given_back("(c) mapped ring, sendmmsg", loop_c_sum, loop_b_sum);
  print_given_back("worker, default identifiers", worker, loop_b_sum);
}

// A turn for each line that comes in, so that two builds can take turns that are short beside what else a machine does.
void worker_turns(tap_load& tap, double seconds, double rate, unsigned clients)
{
  const load_settings load{.seconds = seconds, .rate = rate, .counted = false, .ports = 64, .clients = clients};
  served_bridge bridge(tap, nullptr, load.ports);
  for (std::string line; std::getline(std::cin, line);) {
    const measured result = bridge.run(tap, load);
    std::printf("%.1f %llu %llu\n", result.cpu_us() * 1000, static_cast<unsigned long long>(result.load.sent),
                static_cast<unsigned long long>(result.load.sent - result.taken));
    std::fflush(stdout);
  }
}

// The number behind an option, or `usual`.
double number_of(int argc, char** argv, const char* option, double usual)
{
  for (int i = 1; i + 1 < argc; ++i)
    if (std::strcmp(argv[i], option) == 0)
      return std::atof(argv[i + 1]);
  return usual;
}

// In a short run of all benches every one is told so.
bool is_short_run(int argc, char** argv)
{
  return argc == 2 && std::strncmp(argv[1], "--benchmark_min_time=", 21) == 0;
}

}  // namespace

int main(int argc, char** argv)
{
  const double seconds = is_short_run(argc, argv) ? 0.05 : number_of(argc, argv, "--seconds", 2);
  try {
    keep_on(pthread_self(), core::sender);
    tap_load tap("piabench" + std::to_string(getpid() % 1000));
    if (const double clients = number_of(argc, argv, "--worker", 0); clients > 0) {
      worker_turns(tap, seconds, number_of(argc, argv, "--rate", 0), static_cast<unsigned>(clients));
      return 0;
    }
    full_load(tap, seconds);
    paced_load(tap, std::min(seconds, 1.0));
    storms(tap, std::min(seconds, 1.0));
    storms_compared(tap, std::min(seconds, 0.5), true);
    storms_compared(tap, std::min(seconds, 0.5), false);
  } catch (const std::runtime_error& error) {
    std::printf("whole_path_bench: skipped: %s\n", error.what());
  }
  return 0;
}
