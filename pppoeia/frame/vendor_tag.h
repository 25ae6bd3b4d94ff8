// The vendor tag that the agent writes (TR-101: enterprise number 3561, Agent Circuit ID, Agent Remote ID) put into
// a record, or a vendor tag taken out of one. Pure edits of bytes; lengths in the record are kept up.
#ifndef PPPOEIA_FRAME_VENDOR_TAG_H
#define PPPOEIA_FRAME_VENDOR_TAG_H

#include "base/packed.h"
#include "pppoeia/frame/tags.h"

#include <cstddef>
#include <cstdint>
#include <optional>

struct pppoeia_bridge;

// Lengths that an edit changes, as they stand in the record.
struct frame_lengths {
  uint32_t record;   // bytes of the record, header included
  uint16_t payload;  // bytes of PPPoE payload
};

// What is to be written: each identifier as its bytes, absent when it is not inserted.
struct vendor_tag {
  std::optional<const_bytes> circuit_id;  // at most 63 bytes
  std::optional<const_bytes> remote_id;   // at most 63 bytes

  // Bytes of the whole tag, its header included: 8 to 138.
  size_t size() const;
};

// Writes the tag at the front of `to`, which has room for size() bytes.
void vendor_tag_write(const vendor_tag& tag, mutable_bytes to);

// Where the bytes that follow a tag written at `place` come from: the tag behind an existing one if it ends within
// the PPPoE end, else `place` itself.
size_t tail_begin(const pppoeia_bridge& bridge, const tag_area& area, size_t place);

// The lengths after a change by `delta` bytes; nothing when the payload would become negative or exceed 16 bits, or
// the record would end before its first tag.
std::optional<frame_lengths> lengths_changed(frame_lengths lengths, int64_t delta, size_t first_tag);

// Moves what follows a vendor tag at `tag` down onto it: the tag behind it and all to the record's end, if that tag
// ends within the PPPoE end. Otherwise nothing moves, and the record's new length cuts the end off.
void vendor_tag_close_gap(const pppoeia_bridge& bridge, const tag_area& area, mutable_bytes record, size_t tag);

#endif
