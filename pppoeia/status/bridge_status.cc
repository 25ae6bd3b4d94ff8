#include "pppoeia/status/bridge_status.h"

#include "platform/kvbridge/record_header.h"
#include "pppoeia/status/options.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <new>

uint64_t port_figures::drops() const
{
  uint64_t sum = 0;
  for (size_t what = 0; what < fate_count; ++what)
    if (class_of(static_cast<fate>(what)) == fate_class::dropped)
      sum += fates[what].get();
  return sum;
}

void path_times::add(uint64_t ns)
{
  size_t bucket = 0;
  while (bucket < std::size(bounds_ns) && ns > bounds_ns[bucket])
    ++bucket;
  buckets[bucket].add();
  sum_ns.add(ns);
}

bridge_status::bridge_status(const char* name, uint32_t ports, line_limits limits)
    : lines(ports, limits), name_(name), ports_(ports), figures_(size_t{ports} + 1)
{}

namespace {

// Of every code in discovery_codes, for each frame.
constexpr auto code_indices = [] {
  std::array<uint8_t, 256> indices{};
  indices.fill(code_count - 1);
  for (size_t i = 0; i < std::size(discovery_codes); ++i)
    indices[discovery_codes[i]] = static_cast<uint8_t>(i);
  return indices;
}();

const_bytes frame_of(const frame_record& record)
{
  const const_bytes whole{record.data, record.received};
  return whole.subspan(std::min(whole.size(), kernel_header::size));
}

}  // namespace

void bridge_status::frame_done(const frame_record& record, const frame_result& result, uint64_t now_ns)
{
  const bool of_port = result.what != fate::record_length && result.what != fate::unknown_port && result.port <= ports_;
  port_figures& figures = figures_[of_port ? result.port : 0];
  figures.fates[static_cast<size_t>(result.what)].add();
  if (counts_by_code(result.what))
    figures.codes[code_indices[result.code]].add();
  lines.learn(record, result, now_ns);
  if (class_of(result.what) != fate_class::dropped)
    return;
  const const_bytes frame = frame_of(record);
  const uint64_t client = be48_at(frame, 6);
  figures.last_drop.set(static_cast<uint64_t>(result.what) << 48 | client);
  drops.add(frame, client, result, now_ns);
}

namespace {

// Ends with the process, after every bridge.
struct registry {
  std::mutex mutex;
  std::vector<std::shared_ptr<bridge_status>> bridges;  // under mutex
};

registry& known()
{
  static registry& made = *new registry;
  return made;
}

}  // namespace

bridge_status* bridge_statuses::open(const char* name, uint32_t ports)
{
  if (!status_built)
    return nullptr;
  static const line_limits limits{number_option("PPPOEIA_LINES_PORT", 16, 1, 4096),
                                  number_option("PPPOEIA_LINES", 65536, 1, 1u << 24)};
  try {
    auto made = std::make_shared<bridge_status>(name, ports, limits);
    const std::lock_guard guard(known().mutex);
    known().bridges.push_back(made);
    return made.get();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void bridge_statuses::close(bridge_status* status)
{
  const std::lock_guard guard(known().mutex);
  std::erase_if(known().bridges, [&](const auto& bridge) { return bridge.get() == status; });
}

std::vector<std::shared_ptr<bridge_status>> bridge_statuses::all()
{
  std::vector<std::shared_ptr<bridge_status>> list;
  {
    const std::lock_guard guard(known().mutex);
    list.assign(known().bridges.begin(), known().bridges.end());
  }
  std::ranges::sort(list, {}, [](const auto& bridge) { return bridge->name(); });
  return list;
}
