// The frames of a bridge on their way to whoever watches: a ring of bytes in which the worker writes each frame as it
// came and as it left. Without a
// watcher it costs the worker a look whether there is one.
//
// Watchers keep their own place. One that falls behind by more than the ring holds goes on with the newest, and is told
// how many frames it has lost; neither the worker nor other watchers notice.
#ifndef PPPOEIA_STATUS_MONITOR_RING_H
#define PPPOEIA_STATUS_MONITOR_RING_H

#include "base/packed.h"
#include "pppoeia/frame/path.h"
#include "pppoeia/status/shared.h"

#include <cstdint>
#include <memory>
#include <string>

struct watched_frame {
  uint64_t at_ns;  // steady clock
  fate what;
  uint8_t code;
  uint16_t port;
  uint16_t vid;
  uint32_t length_before;  // of the Ethernet frame; what is kept of it may be less
  uint32_t length_after;   // 0: dropped
  std::string before;
  std::string after;
};

class monitor_ring {
public:
  static constexpr size_t size = 512 * 1024;  // bytes
  static constexpr size_t frame_most = 2048;  // bytes kept of each frame

  // The worker's, while watched(): a record before the frame path has it, and after.
  bool watched() const { return watchers_.get() > 0; }
  void came(const frame_record& record);
  void left(const frame_record& record, const frame_result& result, uint64_t now_ns);

  // Where a watcher is.
  struct place {
    uint64_t words = 0;
    uint64_t frame = 0;  // number of the next; 0 when any will do
  };
  // The watchers', who are all of one thread. A watcher begins with the next frame; the first has the ring made. Throws
  // std::bad_alloc.
  place watch();
  void unwatch() { watchers_.set(watchers_.own() - 1); }

  // The next frame. False when there is none yet. `lost` grows by the frames that were overwritten before they were
  // read.
  bool read(place& at, watched_frame& frame, uint64_t& lost) const;

private:
  using word = shared<uint64_t>;
  static constexpr size_t word_count = size / sizeof(word);
  struct ring {
    shared<uint64_t> claimed;  // words ever written, and those that are about to be
    shared<uint64_t> written;
    uint64_t frames = 0;  // worker only
    word words[word_count];

    word& at(uint64_t index) { return words[index % word_count]; }
    const word& at(uint64_t index) const { return words[index % word_count]; }
  };
  struct header;

  static void put(ring& to, uint64_t at, const_bytes from);
  static std::string take(const ring& from, uint64_t at, size_t length);

  shared<uint32_t> watchers_;
  shared<ring*> ring_;                // once made, it stays
  std::unique_ptr<ring> owner_;       // watchers only
  unsigned char before_[frame_most];  // worker only
  size_t before_kept_ = 0;
  uint32_t before_length_ = 0;
};

#endif
