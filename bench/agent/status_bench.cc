// What it costs to tell what became of a frame, beside the frame path itself, and to read all of it: a card of 16
// bridges of 64 ports, each with traffic of every code and two reasons to drop.
#include "bench/support/allocations.h"
#include "pppoeia/identifiers/identifiers.h"
#include "pppoeia/status/bridge_status.h"
#include "pppoeia/status/reports.h"
#include "tests/support/records_fixture.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstring>
#include <fstream>
#include <unistd.h>

namespace {

int no_mac(unsigned char*)
{
  return -1;
}

long resident_kib()
{
  long pages = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> pages >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// One frame after the other from `clients` addresses on as many ports as the bridge has, through the frame path, told
// or not.
void pass_frames(benchmark::State& state, const test_frame& frame, uint32_t clients, bool told)
{
  constexpr uint32_t ports = 64;
  test_bridge bridge(ports + 2);
  for (uint16_t id = 1; id <= ports; ++id)
    bridge.port(id, 1, 0);
  bridge.port(ports + 1, 2, 0);
  builder_identifiers identifiers;
  frame_services services{identifiers, no_mac};
  const byte_string record = frame.build();
  byte_string buffer(bridge->buffer_size + 142);
  const frame_record view{buffer.data(), static_cast<uint32_t>(record.size()), static_cast<uint32_t>(buffer.size())};
  bridge_status* const status = bridge_statuses::open("bench", ports + 2);
  const uint64_t before = allocations();
  constexpr uint64_t frame_ns = 1000;  // a million a second
  uint64_t number = 0;
  for (auto _ : state) {
    std::copy(record.begin(), record.end(), buffer.begin());
    const auto client = static_cast<uint32_t>(++number % clients);
    const uint16_t port = frame.code == 0x09 ? static_cast<uint16_t>(1 + client % ports) : uint16_t{ports + 1};
    host_put(buffer, kernel_header::input_port, port);
    std::memcpy(&buffer[kernel_header::size + (frame.code == 0x09 ? 6 : 0) + 2], &client, sizeof client);
    const frame_result result = frame_process(*bridge, view, services);
    benchmark::DoNotOptimize(result.length);
    if (told)
      status->frame_done(view, result, number * frame_ns);
  }
  state.counters["allocations"] = static_cast<double>(allocations() - before) / static_cast<double>(state.iterations());
  bridge_statuses::close(status);
}

const test_frame padi{};
const test_frame pado{.code = 0x07, .port = 65, .tags = {{0x0101, ""}, {0x0102, "bras-1"}}};

BENCHMARK_CAPTURE(pass_frames, padi_of_one_client, padi, 1, false);
BENCHMARK_CAPTURE(pass_frames, padi_of_one_client_told, padi, 1, true);
BENCHMARK_CAPTURE(pass_frames, padi_of_1000_clients, padi, 1000, false);
BENCHMARK_CAPTURE(pass_frames, padi_of_1000_clients_told, padi, 1000, true);
BENCHMARK_CAPTURE(pass_frames, padi_of_10000_clients, padi, 10'000, false);
BENCHMARK_CAPTURE(pass_frames, padi_of_10000_clients_told, padi, 10'000, true);
BENCHMARK_CAPTURE(pass_frames, pado, pado, 1, false);
BENCHMARK_CAPTURE(pass_frames, pado_told, pado, 1, true);

class card {
public:
  static constexpr uint16_t ports = 64;

  card()
  {
    for (int number = 0; number < 16; ++number)
      bridges_.push_back(bridge_statuses::open(("br" + std::to_string(number)).c_str(), ports));
    for (bridge_status* bridge : bridges_)
      for (uint16_t port = 1; port <= ports; ++port)
        traffic(*bridge, port);
  }
  ~card()
  {
    for (bridge_status* bridge : bridges_)
      bridge_statuses::close(bridge);
  }

private:
  // Of 16 clients, each with an AC-Name and a vendor tag.
  static void traffic(bridge_status& bridge, uint16_t port)
  {
    const byte_string record =
        test_frame{.tags = {{0x0105, vendor_value("node-17 eth 1/3/12:100", "customer-0001")}, {0x0101, "internet"}}}
            .build();
    byte_string buffer = record;
    const frame_record view{buffer.data(), static_cast<uint32_t>(buffer.size()), static_cast<uint32_t>(buffer.size())};
    const struct {
      fate what;
      uint8_t code;
    } frames[] = {{fate::tag_inserted, 0x09}, {fate::tag_inserted, 0x19}, {fate::tag_removed, 0x07},
                  {fate::tag_absent, 0x65},   {fate::unedited, 0xa7},     {fate::role, 0x07},
                  {fate::tag_untrusted, 0x09}};
    for (unsigned char client = 0; client < 16; ++client)
      for (const auto& [what, code] : frames) {
        buffer[kernel_header::size + 11] = client;
        const bool dropped = class_of(what) == fate_class::dropped;
        bridge.frame_done(view,
                          {.length = dropped ? 0 : view.received,
                           .what = what,
                           .code = code,
                           .of_subscriber = true,
                           .port = port,
                           .ethertype = 119,
                           .vendor_tag = 127},
                          1000);
      }
  }

  std::vector<bridge_status*> bridges_;
};

void metrics_of_a_card(benchmark::State& state)
{
  const card one;
  size_t size = 0;
  for (auto _ : state)
    size = metrics_text(metrics_style::openmetrics).size();
  state.counters["bytes"] = static_cast<double>(size);
}
BENCHMARK(metrics_of_a_card)->Unit(benchmark::kMillisecond);

void lines_of_a_card(benchmark::State& state)
{
  const long before = resident_kib();
  const card one;
  const long after = resident_kib();
  size_t size = 0;
  for (auto _ : state) {
    std::string text;
    const auto body = lines_report({});
    while (body->next(text) == http_body::more::yes) {
    }
    size = text.size();
  }
  state.counters["bytes"] = static_cast<double>(size);
  state.counters["table_KiB"] = static_cast<double>(after - before);
}
BENCHMARK(lines_of_a_card)->Unit(benchmark::kMillisecond);

}  // namespace
