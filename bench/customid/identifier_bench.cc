// What one identifier costs the worker: the default Ethernet text, custom texts, byte identifiers. "allocs" counts
// heap allocations a call. Debug logging is off, as on a node in service.
#include "bench/support/allocations.h"
#include "platform/kvbridge/record_header.h"
#include "pppoeia/identifiers/identifiers.h"
#include "pppoeia/identifiers/macro_values.h"
#include "pppoeia/records.h"
#include "pppoeia/text.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <new>

namespace {

// Bridge "br0" with one subscriber port, 7, as it is while a frame from there is processed.
pppoeia_bridge& line_card()
{
  constexpr uint32_t ports = 8;
  static void* block = std::calloc(1, bridge_record_size(ports));
  static pppoeia_bridge& bridge = *[] {
    auto* record = new (block) pppoeia_bridge{};
    record->ports = record->port_count = ports;
    text_copy(record->name, "br0");
    text_copy(record->vendor, "VELTRONA");
    text_copy(record->shelf_id, "shelf-1");
    text_copy(record->sysname, "access-node-12");
    record->chassis_id = 99;
    record->board_pos = 3;
    static unsigned char buffer[1];
    record->frame_buffer = buffer;
    record->frame_client_mac = 0x021122aabbcc;
    record->frame_vlan_words = 100u << 16 | vid_none;
    pppoeia_port& port = record->port[6];
    port.port_id = 7;
    text_copy(port.dev_name, "dsl7");
    text_copy(port.port_name, "0/7");
    text_copy(port.type, "eth");
    text_copy(port.remote_id, "customer 4711");
    port.vlan_info.set(100);
    return record;
  }();
  return bridge;
}

void finish(benchmark::State& state, uint64_t before)
{
  state.counters["allocs"] =
      benchmark::Counter(static_cast<double>(allocations() - before) / static_cast<double>(state.iterations()));
}

void default_ethernet_text(benchmark::State& state)
{
  pppoeia_bridge& bridge = line_card();
  char out[identifier_text_size] = "";
  std::vector<unsigned char> bin;
  const uint64_t before = allocations();
  for (auto _ : state) {
    pppoeia_build_circuit_id(out, &bridge, &bridge.port[6], 100, bin, idGenLive);
    benchmark::DoNotOptimize(out);
  }
  finish(state, before);
}
BENCHMARK(default_ethernet_text);

void custom(benchmark::State& state, const char* text)
{
  const pppoeia_bridge& bridge = line_card();
  const std::string format = text;
  std::string first;
  std::vector<unsigned char> bytes;
  genCustomId(&bridge, 7, 100, vid_none, format, first, bytes, idGenLive);
  state.SetLabel(first);
  const uint64_t before = allocations();
  for (auto _ : state) {
    std::string id;
    std::vector<unsigned char> bin;
    genCustomId(&bridge, 7, 100, vid_none, format, id, bin, idGenLive);
    benchmark::DoNotOptimize(id.data());
    benchmark::DoNotOptimize(bin.data());
  }
  finish(state, before);
}
BENCHMARK_CAPTURE(custom, five_macros, "$SYSNAME eth $BOARD/$PORT:$VLAN $CHASSIS");
BENCHMARK_CAPTURE(custom, five_macros_with_mac, "$SYSNAME eth $CHASSIS/$z2PORT:$VLAN $CLNT_MAC");
BENCHMARK_CAPTURE(custom, remote_id, "$PORT_REM_ID");
BENCHMARK_CAPTURE(custom, bytes, "$0a0bHEX$hz2PORT$hz2VLAN$hCLNT_MAC");
BENCHMARK_CAPTURE(custom, text_and_bytes, "$SYSNAME eth $CHASSIS/$PORT:$hz2VLAN");

}  // namespace
