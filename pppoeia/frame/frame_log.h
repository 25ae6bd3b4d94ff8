// The log of one frame, written from its parsed record and the reason, in the order of the frame path's steps. All but
// one line are debug lines: callers test the level first, and none of that runs while debug is off.
#ifndef PPPOEIA_FRAME_FRAME_LOG_H
#define PPPOEIA_FRAME_FRAME_LOG_H

#include "pppoeia/frame/edit.h"
#include "pppoeia/frame/rules.h"

#include <cstdint>

// The name of a tag type, "Unknown" for others.
extern "C" const char* pppoeia_tag_name(uint16_t type);

// Hexadecimal dump of the frame, 16 bytes a line, each line behind `prefix`. The size that is
// logged counts one byte past the record's end: it is dumped as zero.
[[gnu::cold]] void pppoeia_frame_dump(const pppoeia_bridge& bridge, const_bytes record, uint32_t record_length,
                                      const char* prefix);

// One frame on its bridge: rare, so that the compiler keeps it out of the frame path's way. `record` is the received
// record with the room behind it, as it is now.
struct frame_log {
  const pppoeia_bridge& bridge;
  const parsed_frame& frame;
  const_bytes record;

  // What came, and what the rules make of it. `port` is null for unknown_port.
  [[gnu::cold]] void judged(const pppoeia_port* port, fate reason) const;

  // A byte identifier is taken in the place of its text.
  [[gnu::cold]] void bytes_used(const char* which) const;
  [[gnu::cold]] void insertion_planned(const insertion& plan, bool replaces) const;
  [[gnu::cold]] void inserted(const vendor_tag& tag, const char* circuit_id, const char* remote_id) const;
  [[gnu::cold]] void too_large() const;
  // What has become of a frame that was not to get a vendor tag, or for which there was no room.
  [[gnu::cold]] void ended(fate what) const;
  [[gnu::cold]] void forwarded() const;

private:
  [[gnu::cold]] void received() const;
  [[gnu::cold]] void vlan() const;
  [[gnu::cold]] void discovery_header() const;
  [[gnu::cold]] void tags(const tag_area& area) const;
  [[gnu::cold]] void role_refused(const pppoeia_port& port) const;
  [[gnu::cold]] void vendor_tag_found(fate reason) const;
  [[gnu::cold]] void past_end(size_t tag, size_t end) const;
  const char* name_at(size_t offset) const { return reinterpret_cast<const char*>(record.data() + offset); }
};

// An error, whatever the level of debug lines: an answer to a client needs an address of the agent's own.
[[gnu::cold]] void frame_log_no_address(const pppoeia_bridge& bridge);

#endif
