#include "pppoeia/frame/vsa.h"

#include "pppoeia/frame/error_answer.h"

#include <algorithm>
#include <cstring>

namespace {

fate vsa_remove(const passage& at)
{
  const tag_area tags = at.tags();
  const auto lengths = lengths_changed(at.lengths(), -static_cast<int64_t>(at.vsa_size()), tags.first);
  if (!lengths) {
    at.log_misfit();
    return fate::removal_misfit;
  }
  at.lengths_put(*lengths);
  vendor_tag_close_gap(at.bridge, tags, at.all(), at.vsa);
  pppoeia_log(log_debug, "<%s>    Removed VSA tag.", at.bridge.name);
  return fate::tag_removed;
}

}  // namespace

fate vsa_of_server_frame(const passage& at)
{
  if (at.vsa == no_tag) {
    pppoeia_log(log_debug, "<%s>    No VSA tag to remove.", at.bridge.name);
    return fate::tag_absent;
  }
  if (at.bridge.vsa_mode == 1)
    return vsa_remove(at);
  pppoeia_log(log_debug, "<%s>    VSA tag kept.", at.bridge.name);
  return fate::tag_kept;
}

namespace {

// The bytes of an identifier for the tag: the byte identifier if there is one, else the text.
const_bytes identifier_bytes(const passage& at, const identifier& id, const char* which)
{
  const unsigned char* data = reinterpret_cast<const unsigned char*>(id.text);
  size_t length = strnlen(id.text, sizeof id.text);
  if (!id.bin.empty()) {
    pppoeia_log(log_debug, "<%s>    Using %s bin.", at.bridge.name, which);
    data = id.bin.data();
    length = id.bin.size();
  }
  return {data, std::min(length, pppoe::identifier_max)};
}

void identifier_clear(identifier& id)
{
  id.text[0] = '\0';
  id.bin.clear();
}

void log_stretch(const passage& at, int64_t delta)
{
  const int by = static_cast<int>(delta);
  pppoeia_log(log_debug, "<%s>    VSA tag will be added.", at.bridge.name);
  if (delta > 0)
    pppoeia_log(log_debug, "<%s>    VSA tag stretched by %d bytes.", at.bridge.name, by);
  else if (delta < 0)
    pppoeia_log(log_debug, "<%s>    VSA tag cut by %d bytes.", at.bridge.name, -by);
  else
    pppoeia_log(log_debug, "<%s>    VSA tag size fits.", at.bridge.name);
}

// Whether the record would pass the largest PDU. 32 bits wrap on purpose: a record that shrinks below its header is
// far too large.
bool too_large(const passage& at, int64_t delta)
{
  const auto frame = static_cast<uint32_t>(at.record.received + static_cast<uint64_t>(delta) - kernel_header::size);
  return frame > at.bridge.max_pdu;
}

fate answer_error(passage& at)
{
  pppoeia_log(log_debug, "<%s>    MTU exceeded.", at.bridge.name);
  return error_answer_make(at.bridge, at.record, at.pppoe, at.services) ? fate::error_answered : fate::no_own_address;
}

// What is to be inserted, and where.
struct insertion {
  vendor_tag tag;
  size_t place;
  bool replaces;
  size_t tail;    // where the bytes that will follow the tag begin now
  int64_t delta;  // growth of the frame in bytes
};

vendor_tag tag_build(passage& at)
{
  identifier& circuit = at.services.circuit_id;
  identifier& remote = at.services.remote_id;
  identifier_clear(circuit);
  identifier_clear(remote);
  vendor_tag tag;
  at.services.identifiers.circuit_id(at.bridge, *at.port, at.vid, circuit);
  if (const const_bytes id = identifier_bytes(at, circuit, "CID"); at.bridge.vsa_insert_circuit_id)
    tag.circuit_id = id;
  at.services.identifiers.remote_id(at.bridge, *at.port, at.vid, remote);
  if (const const_bytes id = identifier_bytes(at, remote, "RID"); at.bridge.vsa_insert_remote_id)
    tag.remote_id = id;
  return tag;
}

insertion insertion_plan(passage& at)
{
  const tag_area tags = at.tags();
  // A vendor tag that does not lie whole inside the payload is none whose place could be taken.
  const bool replaces = at.vsa != no_tag && tags.fits(at.vsa);
  insertion plan{tag_build(at), at.vsa, replaces, 0, 0};
  if (!replaces)
    plan.place = vendor_tag_place(at.bridge, tags);
  plan.delta = static_cast<int64_t>(plan.tag.size()) - static_cast<int64_t>(replaces ? at.vsa_size() : 0);
  log_stretch(at, plan.delta);
  plan.tail = tail_begin(at.bridge, tags, plan.place);
  return plan;
}

// Moves what follows the tag to where it will be, as far as the record will go, and keeps the lengths up. False when
// they cannot be.
bool room_make(const passage& at, const insertion& plan)
{
  if (plan.delta == 0)
    return true;
  const auto lengths = lengths_changed(at.lengths(), plan.delta, at.pppoe.first_tag());
  if (!lengths)
    return false;
  at.lengths_put(*lengths);
  const size_t to = plan.place + plan.tag.size();
  if (to < lengths->record)
    std::memmove(at.record.data + to, at.record.data + plan.tail,
                 std::min<size_t>(at.record.received - plan.tail, lengths->record - to));
  return true;
}

void log_added(const passage& at, const vendor_tag& tag)
{
  if (tag.circuit_id)
    pppoeia_log(log_debug, "<%s>    Added Circuit ID '%s' (%d bytes).", at.bridge.name, at.services.circuit_id.text,
                static_cast<int>(tag.circuit_id->size()));
  if (tag.remote_id)
    pppoeia_log(log_debug, "<%s>    Added Remote Agent ID '%s' (%d bytes).", at.bridge.name, at.services.remote_id.text,
                static_cast<int>(tag.remote_id->size()));
}

}  // namespace

fate vsa_of_client_frame(passage& at)
{
  const insertion plan = insertion_plan(at);
  if (too_large(at, plan.delta))
    return answer_error(at);
  if (!room_make(at, plan)) {
    at.log_misfit();
    return fate::insertion_misfit;
  }
  vendor_tag_write(plan.tag, at.all().subspan(plan.place));
  at.result.vendor_tag = static_cast<uint32_t>(plan.place);
  log_added(at, plan.tag);
  return plan.replaces ? fate::tag_replaced : fate::tag_inserted;
}
