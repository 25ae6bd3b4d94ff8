// The frame path alone: one PADI through the record function, with and without a format.
#include "bench/support/allocations.h"
#include "pppoeia/identifiers/identifiers.h"
#include "pppoeia/kernel/frame_buffers.h"
#include "pppoeia/text.h"
#include "tests/support/records_fixture.h"

#include <benchmark/benchmark.h>

#include <algorithm>

namespace {

int no_mac(unsigned char[6])
{
  return -1;
}

// Runs the same record again and again; copying it in is part of what is measured, as the kernel does it too.
void run(benchmark::State& state, test_bridge& bridge, const test_frame& frame)
{
  builder_identifiers identifiers;
  frame_services services{identifiers, no_mac};
  const byte_string record = frame.build();
  byte_string buffer(bridge->buffer_size + frame_growth_max);
  const frame_record view{buffer.data(), static_cast<uint32_t>(record.size()), static_cast<uint32_t>(buffer.size())};
  const uint64_t before = allocations();
  for (auto _ : state) {
    std::copy(record.begin(), record.end(), buffer.begin());
    benchmark::DoNotOptimize(frame_process(*bridge, view, services));
    benchmark::ClobberMemory();
  }
  state.counters["allocations"] = static_cast<double>(allocations() - before) / static_cast<double>(state.iterations());
}

void padi_default_identifiers(benchmark::State& state)
{
  test_bridge bridge;
  bridge.port(1, 1, 1);
  run(state, bridge, {});
}
BENCHMARK(padi_default_identifiers);

void padi_five_macros(benchmark::State& state)
{
  test_bridge bridge;
  bridge.port(1, 1, 1).vsa_circuit_id_mode = 2;
  text_copy(bridge->sysname, "node-17");
  text_copy(bridge->pppoeia_cid_format, "$SYSNAME eth $CHASSIS/$PORT:$VLAN $INTF");
  run(state, bridge, {});
}
BENCHMARK(padi_five_macros);

void pado_tag_removed(benchmark::State& state)
{
  test_bridge bridge;
  bridge.port(1, 2, 0);
  run(state, bridge, {.code = 0x07, .tags = {{0x0102, "ac"}, {0x0105, vendor_value("circuit", "remote")}}});
}
BENCHMARK(pado_tag_removed);

// The look-ups must not grow with the card: the last of 4,096 ports beside the first.
void padi_on_port_of_large_bridge(benchmark::State& state)
{
  test_bridge bridge(4096);
  const auto id = static_cast<uint32_t>(state.range(0));
  bridge.port(id, 1, 1);
  run(state, bridge, {.port = static_cast<uint16_t>(id)});
}
BENCHMARK(padi_on_port_of_large_bridge)->Arg(1)->Arg(4095);

}  // namespace
