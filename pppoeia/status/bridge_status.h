// What one bridge tells of itself beside its operations: extended counters, the last frames that were dropped.
//
// The worker writes and waits for nobody; readers never hold it up. A reader owns a share, so that a bridge may be
// deleted while it is read about.
#ifndef PPPOEIA_STATUS_BRIDGE_STATUS_H
#define PPPOEIA_STATUS_BRIDGE_STATUS_H

#include "pppoeia/frame/parse.h"
#include "pppoeia/frame/path.h"
#include "pppoeia/status/drop_list.h"
#include "pppoeia/status/line_table.h"
#include "pppoeia/status/monitor_ring.h"
#include "pppoeia/status/shared.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

inline constexpr uint8_t discovery_codes[] = {pppoe::padi, pppoe::pado, pppoe::padr, pppoe::pads, pppoe::padt};
inline constexpr size_t code_count = std::size(discovery_codes) + 1;  // the last one is any other

// Of a port; number 0 stands for frames that are of no port.
struct alignas(64) port_figures {
  tally codes[code_count];  // accepted frames; in the same line of the cache as the tags that were put in
  tally fates[fate_count];
  shared<uint64_t> last_drop;  // reason in the high 16 bits, client MAC in the others

  uint64_t drops() const;
};

// Seconds in the frame path of one frame in 64.
struct path_times {
  static constexpr uint64_t bounds_ns[] = {250, 500, 1000, 2000, 4000, 8000, 16000, 64000, 1000000};
  tally buckets[std::size(bounds_ns) + 1];
  tally sum_ns;

  void add(uint64_t ns);
};

class bridge_status {
public:
  static constexpr unsigned sample_every = 64;

  // Throws std::bad_alloc.
  bridge_status(const char* name, uint32_t ports, line_limits limits);
  bridge_status(const bridge_status&) = delete;
  bridge_status& operator=(const bridge_status&) = delete;

  // The worker's: what became of a record, which is as the frame path left it. `now_ns` is of the steady clock.
  void frame_done(const frame_record& record, const frame_result& result, uint64_t now_ns);

  // Whether the frame path's time is to be taken for the next frame.
  bool samples() { return ++frames_ % sample_every == 0; }

  const std::string& name() const { return name_; }
  uint32_t ports() const { return ports_; }
  const port_figures& port(uint32_t id) const { return figures_[id]; }  // 0 to ports()

  path_times path;
  tally batches;
  tally records;
  tally send_failures;
  tally lost;                    // in front of the agent, since its socket had no room
  shared<uint32_t> queue_depth;  // records that waited when the worker last looked, once a second
  shared<uint64_t> alive_ns;     // when the worker last came by; 0 before it did
  drop_list drops;
  line_table lines;
  monitor_ring monitor;

private:
  std::string name_;
  uint32_t ports_;
  unsigned frames_ = 0;  // worker only
  zeroed<port_figures> figures_;
};

// All bridges there are. Any thread.
namespace bridge_statuses {

// Makes one and enters it; null without memory, or where the build is without. The line table's limits are those of the
// environment (PPPOEIA_LINES_PORT, PPPOEIA_LINES).
bridge_status* open(const char* name, uint32_t ports);
// Takes it off. Null is allowed. The worker has ended.
void close(bridge_status* status);
// In the order of their names.
std::vector<std::shared_ptr<bridge_status>> all();

}  // namespace bridge_statuses

// False in a build that keeps none of this, to measure what it costs.
#ifdef PPPOEIA_NO_STATUS
inline constexpr bool status_built = false;
#else
inline constexpr bool status_built = true;
#endif

#endif
