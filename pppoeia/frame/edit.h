// What the agent does to the bytes of an accepted frame: the line's vendor tag in, a server's out, or an error answer
// in the place of it all. Edits a record in place, on spans; lengths in the record are kept up.
#ifndef PPPOEIA_FRAME_EDIT_H
#define PPPOEIA_FRAME_EDIT_H

#include "pppoeia/frame/parse.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

// Lengths that an edit changes, as they stand in the record.
struct frame_lengths {
  uint32_t record;   // bytes of the record, header included
  uint16_t payload;  // bytes of PPPoE payload
};

frame_lengths lengths_of(const_bytes record, const discovery& pppoe);

// The vendor tag that the agent writes (TR-101: enterprise number 3561, Agent Circuit ID, Agent Remote ID): each
// identifier as its bytes, absent when it is not inserted.
struct vendor_tag {
  std::optional<const_bytes> circuit_id;  // at most 63 bytes
  std::optional<const_bytes> remote_id;   // at most 63 bytes

  // Bytes of the whole tag, its header included: 8 to 138.
  size_t size() const;
};

// Where a vendor tag goes.
struct insertion {
  size_t place;
  size_t tail;    // where the bytes that will follow the tag begin now
  int64_t delta;  // growth of the frame in bytes
};

// For a tag of `size` bytes that takes the place of the frame's own, or none's. The latter goes before the first
// End-Of-List tag, else behind the last tag that fits; at the first tag when not even that one does. Never behind the
// PPPoE end: what stands there is no tag, and a server that reads only the payload would not see what hides behind its
// length.
insertion insertion_plan(const parsed_frame& frame, size_t size, bool replaces);

// Both edit `record`, which begins with the received bytes of `frame` and has room for the growth behind
// them. False, and nothing is changed, when the payload would become negative or exceed 16 bits, or the record would
// end before its first tag.
bool vendor_tag_insert(mutable_bytes record, const parsed_frame& frame, const vendor_tag& tag, const insertion& plan);
bool vendor_tag_take_out(mutable_bytes record, const parsed_frame& frame);

// The agent's own answer to a client whose frame would not fit any more with the tag in it. Turns a PADI into a PADO, a
// PADR into a PADS, from `own_mac` back to the client, with nothing but a Generic-Error tag in it; the rest of the
// received record becomes 0xff. Record length and session id stay. It comes from `device`, and goes to no device by
// name: the kernel bridge sends it where the client is.
[[gnu::cold]] void error_answer_write(mutable_bytes record, const parsed_frame& request, std::string_view device,
                                      const unsigned char own_mac[6]);

#endif
