// Requests to the agent beside a bare SOCK_SEQPACKET ping-pong with messages of the same sizes, in one run, in turn:
// with both ends on one core, and with the server on another. Prints round trips per second and the ratio.
//
// Usage: round_trip_bench [--seconds N]     N for each measurement, default 1
#include "platform/ippc/client.h"
#include "platform/ippc/server.h"
#include "pppoeia/operations/dispatcher.h"
#include "pppoeia/pppoeia.h"
#include "tests/support/api_fixture.h"
#include "tests/support/syslog_capture.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <sched.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using steady = std::chrono::steady_clock;

constexpr uint16_t bridge_state_get = 11;
constexpr int rounds = 5;

// The calling thread, and those that it starts from now on.
void pin_to(unsigned core)
{
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(core, &set);
  sched_setaffinity(0, sizeof set, &set);
}

// Calls `once` for the time given; calls per second.
double per_second(double seconds, const std::function<void()>& once)
{
  const auto begin = steady::now();
  const auto end = begin + std::chrono::duration<double>(seconds);
  uint64_t count = 0;
  while (steady::now() < end)
    for (int i = 0; i < 32; ++i, ++count)
      once();
  return static_cast<double>(count) / std::chrono::duration<double>(steady::now() - begin).count();
}

// recv and send at both ends, and nothing else.
double bare(double seconds, unsigned server_core, size_t request_size, size_t reply_size)
{
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0)
    std::abort();
  std::thread server([&] {
    pin_to(server_core);
    std::vector<char> packet(65536);
    while (recv(ends[1], packet.data(), packet.size(), 0) > 0)
      if (send(ends[1], packet.data(), reply_size, 0) < 0)
        return;
  });
  std::vector<char> packet(65536);
  const double result = per_second(seconds, [&] {
    if (send(ends[0], packet.data(), request_size, 0) < 0 || recv(ends[0], packet.data(), packet.size(), 0) < 0)
      std::abort();
  });
  shutdown(ends[0], SHUT_RDWR);
  server.join();
  close(ends[0]);
  close(ends[1]);
  return result;
}

double agent(double seconds, ippc::client& client)
{
  std::vector<std::vector<unsigned char>> arguments = {{'b', 'r', '0', 0}, {0, 0, 0, 0}};
  return per_second(seconds, [&] {
    const ippc::call_reply reply = client.call(bridge_state_get, arguments, std::chrono::seconds(5));
    if (reply.error != ippc::call_error::none || !reply.has_result || reply.result != 0)
      std::abort();
  });
}

double median(std::vector<double> values)
{
  std::ranges::sort(values);
  return values[values.size() / 2];
}

void compare(const char* title, double seconds, unsigned server_core)
{
  const std::string path = "/tmp/round-trip-bench." + std::to_string(getpid());
  pin_to(server_core);
  ippc::server server(path, pppoeia_ippc_dispatcher);
  if (server.start() != 0)
    std::abort();
  pin_to(0);
  ippc::client client;
  if (!client.open(path))
    std::abort();
  constexpr size_t request_size = 16 + 2 * (4 + 4), reply_size = 24 + 2 * (4 + 4);
  std::vector<double> bare_rates, agent_rates;
  for (int i = 0; i < rounds; ++i) {
    bare_rates.push_back(bare(seconds, server_core, request_size, reply_size));
    agent_rates.push_back(agent(seconds, client));
  }
  const double bare_rate = median(bare_rates), agent_rate = median(agent_rates);
  std::printf("%-10s  bare %9.0f/s  agent %9.0f/s  ratio %.2f\n", title, bare_rate, agent_rate, agent_rate / bare_rate);
}

}  // namespace

int main(int argc, char** argv)
{
  const double seconds = argc == 3 && std::strcmp(argv[1], "--seconds") == 0 ? std::atof(argv[2]) : 1;
  if (seconds <= 0) {
    std::fprintf(stderr, "usage: round_trip_bench [--seconds N]\n");
    return 2;
  }
  const api_fixture card;
  syslog_keep(false);
  compare("one core", seconds, 0);
  if (std::thread::hardware_concurrency() > 1)
    compare("two cores", seconds, 1);
  return 0;
}
