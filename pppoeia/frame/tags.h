// The tags of one discovery frame, as a walk over a bounded view of its record.
//
// The area is what the PPPoE header claims (from the first tag to the PPPoE end), inside what was received. A tag is
// stepped to only when its own end lies within the PPPoE end. Nothing steps to the first tag, so it is looked at
// whatever length it claims: a search finds a vendor tag there even where it does not fit, but what is put in never
// goes behind a tag that does not fit. A vendor tag whose four header bytes are not inside the record is none;
// elsewhere a header that is cut goes on with zeros.
#ifndef PPPOEIA_FRAME_TAGS_H
#define PPPOEIA_FRAME_TAGS_H

#include "base/packed.h"
#include "pppoeia/frame/pppoe.h"

#include <cstddef>
#include <cstdint>

struct pppoeia_bridge;

// Offsets are from the record's first byte.
struct tag_area {
  const_bytes record;  // what was received, or what is about to be sent
  size_t first;        // where the first tag begins
  size_t end;          // the PPPoE end; never before `first`

  bool header_inside(size_t tag) const { return tag + pppoe::tag_header <= record.size(); }
  uint16_t type(size_t tag) const { return be16_at(record, tag); }
  uint16_t length(size_t tag) const { return be16_at(record, tag + 2); }
  size_t next(size_t tag) const { return tag + pppoe::tag_header + length(tag); }
  // True when the tag is there and ends within the PPPoE end.
  bool fits(size_t tag) const { return header_inside(tag) && next(tag) <= end; }
};

inline constexpr size_t no_tag = ~size_t{0};

// The name of a tag type, "Unknown" for others.
extern "C" const char* pppoeia_tag_name(uint16_t type);

// Offset of the first vendor tag, or no_tag. A first tag at or past the PPPoE end counts too.
size_t vendor_tag_find(const pppoeia_bridge& bridge, const tag_area& area);

// Where a vendor tag goes that takes no other's place: before the first End-Of-List tag, else behind the last tag that
// fits; at the first tag when not even that one does. Never behind the PPPoE end: what stands there is no tag, and a
// server that reads only the payload would not see what hides behind its length.
size_t vendor_tag_place(const pppoeia_bridge& bridge, const tag_area& area);

// Logs every tag at debug level. Call only when that level is on.
void tags_log(const pppoeia_bridge& bridge, const tag_area& area);

// Logs at debug level that a walk came to `tag`, which is at or past the PPPoE end.
void past_end_log(const pppoeia_bridge& bridge, const tag_area& area, size_t tag);

#endif
