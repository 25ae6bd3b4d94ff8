#include "pppoeia/status/line_table.h"

#include "platform/kvbridge/record_header.h"
#include "pppoeia/frame/parse.h"

#include <algorithm>
#include <bit>
#include <utility>

// A client's request writes the first lines of the cache, a server's answer the later ones.
struct alignas(64) line_table::entry {
  revision changes;
  shared<uint32_t> used;
  shared<uint32_t> port;
  shared<uint32_t> retries;
  shared<uint32_t> drops;
  shared<uint16_t> vid;
  shared<uint16_t> session_id;
  shared<uint16_t> error;
  shared<line_state> state;
  shared<bool> ended_by_client;
  shared<fate> last_drop;
  shared<uint64_t> client;
  shared<uint64_t> seen_ns;
  shared<uint64_t> first_padi_ns;
  uint64_t host_uniq;  // worker only: what tells this client's Host-Uniq tag from others
  shared_bytes<63> service_name;
  shared_bytes<135> vendor_tag;
  shared<uint64_t> server;
  shared<uint64_t> pads_ns;
  shared<uint64_t> padt_ns;
  shared<uint64_t> setup_ns;
  shared_bytes<63> ac_name;
  shared_bytes<63> error_text;  // while there is an error
};

// What a frame says.
struct line_table::heard {
  uint64_t now_ns;
  uint32_t port;
  uint16_t vid;
  uint8_t code;
  fate what;
  uint64_t to;
  uint64_t from;
  uint16_t session_id;
  uint64_t host_uniq = 0;
  uint16_t error = 0;
  const_bytes service_name{};
  const_bytes ac_name{};
  const_bytes error_text{};
  const_bytes vendor_tag{};
};

namespace {

std::atomic<uint32_t> lines_of_node{0};

uint64_t key_of(uint64_t client, uint16_t vid)
{
  return client << 16 | 0x8000u | vid;
}

// Enough to tell a client's own tags apart: beginning, end and length. Not 0.
uint64_t trace_of(const_bytes value)
{
  const uint64_t begin = front_word(value);
  const uint64_t end = front_word(value.last(std::min(value.size(), sizeof begin)));
  return (begin ^ std::rotl(end, 17) ^ value.size() << 48) | 1u << 31;
}

bool asks(uint8_t code)
{
  return code == pppoe::padi || code == pppoe::padr;
}

template <typename Heard>
void tag_note(Heard& frame, uint16_t type, const_bytes value)
{
  switch (type) {
  case pppoe::tag_service_name:
    frame.service_name = value;
    return;
  case pppoe::tag_ac_name:
    frame.ac_name = value;
    return;
  case pppoe::tag_host_uniq:
    frame.host_uniq = trace_of(value);
    return;
  case pppoe::tag_service_error:
  case pppoe::tag_system_error:
  case pppoe::tag_generic_error:
    frame.error = type;
    frame.error_text = value;
    return;
  default:
    return;
  }
}

template <typename Heard>
void tags_note(Heard& frame, const tag_area& tags, size_t own_vendor_tag)
{
  for (size_t tag = tags.first; tags.fits(tag) && tags.type(tag) != pppoe::tag_end_of_list; tag = tags.next(tag)) {
    const const_bytes value = tags.record.subspan(tag + pppoe::tag_header, tags.length(tag));
    if (tag == own_vendor_tag)
      frame.vendor_tag = value;
    else
      tag_note(frame, tags.type(tag), value);
  }
}

}  // namespace

line_table::line_table(uint32_t ports, line_limits limits)
    : ports_(ports), per_port_(std::clamp(limits.node / std::max(ports, 1u), 1u, std::max(limits.port, 1u))),
      node_most_(limits.node), bucket_shift_(static_cast<unsigned>(64 - std::bit_width(slots() | 1))),
      entries_(slots() + 1), places_(slots() + 1), by_client_(size_t{1} << (64 - bucket_shift_)),
      pushed_(size_t{ports} + 1)
{}

line_table::~line_table()
{
  lines_of_node -= made_;
}

line_table::slot_number line_table::of_client(uint32_t port, uint16_t vid, uint64_t client) const
{
  const uint64_t key = key_of(client, vid);
  const slot_number first = (port - 1) * per_port_ + 1;
  for (slot_number slot = first; slot < first + per_port_; ++slot)
    if (places_[slot].key == key)
      return slot;
  return 0;
}

// The place of the port that is best given up; a free one, if there is one.
line_table::slot_number line_table::victim(uint32_t port) const
{
  const slot_number first = (port - 1) * per_port_ + 1;
  const place* const places = &places_[first];
  uint32_t least = 0;
  uint32_t least_worth = places[0].worth;
  for (uint32_t i = 1; i < per_port_ && least_worth != 0; ++i)
    if (places[i].worth < least_worth)
      least_worth = places[least = i].worth;
  return first + least;
}

// Seconds (of 2^30 ns) in the lower bits: 34 years.
uint32_t line_table::worth_of(line_state state, uint64_t now_ns)
{
  const uint32_t rank = state == line_state::ended ? 1 : state == line_state::up ? 3 : 2;
  return rank << 30 | static_cast<uint32_t>(now_ns >> 30 & 0x3fffffff);
}

// Whether the port has pushed out so many of its lines within this second that no further client is learnt.
bool line_table::invents(uint32_t port, uint64_t now_ns) const
{
  constexpr uint64_t times_its_room = 16;
  return pushed_[port] >> 32 == now_ns >> 30 && (pushed_[port] & 0xffffffff) >= times_its_room * per_port_;
}

void line_table::count_pushed(uint32_t port, uint64_t now_ns)
{
  const uint64_t second = now_ns >> 30;
  pushed_[port] = pushed_[port] >> 32 == second ? pushed_[port] + 1 : second << 32 | 1;
}

void line_table::worth_set(slot_number slot, uint64_t now_ns)
{
  places_[slot].worth = worth_of(entries_[slot].state.own(), now_ns);
}

// A client that repeats its PADI within the second is counted; what it says was read a moment ago.
bool line_table::is_repeated(slot_number slot, const frame_result& result, uint64_t now_ns)
{
  if (slot == 0 || result.code != pppoe::padi || result.what != fate::tag_inserted ||
      places_[slot].worth != worth_of(line_state::discovering, now_ns) ||
      entries_[slot].state.own() != line_state::discovering)
    return false;
  entry& line = entries_[slot];
  line.seen_ns.set(now_ns);
  line.retries.set(line.retries.own() + 1);
  return true;
}

// Room for one more line of this node; for the sake of an ended one of this bridge, where that is found soon.
bool line_table::take_from_node()
{
  constexpr int looks = 64;
  if (lines_of_node.fetch_add(1, std::memory_order_relaxed) < node_most_) {
    ++made_;
    return true;
  }
  lines_of_node.fetch_sub(1, std::memory_order_relaxed);
  for (int look = 0; look < looks; ++look) {
    hand_ = hand_ % slots() + 1;
    const auto slot = static_cast<slot_number>(hand_);
    if (places_[slot].key == 0 || entries_[slot].state.own() != line_state::ended)
      continue;
    unlink(slot);
    count_change(line_state::ended, -1);
    places_[slot].key = 0;
    places_[slot].worth = 0;
    entries_[slot].used.set(0);
    replaced_.add();
    return true;
  }
  return false;
}

void line_table::count_change(line_state state, int by)
{
  shared<uint32_t>& count = counts_[static_cast<size_t>(state)];
  count.set(count.own() + static_cast<uint32_t>(by));
}

void line_table::state_set(entry& line, line_state state)
{
  if (line.state.own() == state)
    return;
  count_change(line.state.own(), -1);
  count_change(state, 1);
  line.state.set(state);
}

void line_table::unlink(slot_number slot)
{
  uint32_t* link = chain_of(places_[slot].key >> 16);
  while (*link != slot)
    link = &places_[*link].next;
  *link = places_[slot].next;
}

line_table::slot_number line_table::make(const heard& frame, uint64_t client)
{
  const slot_number slot = victim(frame.port);
  if (places_[slot].key != 0) {
    unlink(slot);
    count_change(entries_[slot].state.own(), -1);
    replaced_.add();
    count_pushed(frame.port, frame.now_ns);
  } else if (!take_from_node()) {
    unlearned_.add();
    return 0;
  }
  places_[slot].key = key_of(client, frame.vid);
  uint32_t* const chain = chain_of(client);
  places_[slot].next = *chain;
  *chain = slot;
  entry& line = entries_[slot];
  line.changes.begin();
  count_change(line_state::ended, 1);
  line.state.set(line_state::ended);  // the request that it is made for begins a dial-in, and says the rest
  line.used.set(0);
  line.port.set(frame.port);
  line.vid.set(frame.vid);
  line.client.set(client);
  for (shared<uint64_t>* field : {&line.server, &line.pads_ns, &line.padt_ns, &line.setup_ns})
    field->set(0);
  line.session_id.set(0);
  line.error.set(0);
  line.drops.set(0);
  line.ac_name.set({});
  line.changes.end();
  return slot;
}

bool line_table::expects(slot_number slot, const heard& frame) const
{
  const line_state state = entries_[slot].state.own();
  if (frame.code == pppoe::pado)
    return state == line_state::discovering || state == line_state::offered;
  return state == line_state::requested || state == line_state::up;
}

bool line_table::ends_session(slot_number slot, const heard& frame) const
{
  return entries_[slot].state.own() == line_state::up && entries_[slot].session_id.own() == frame.session_id;
}

// The line that a server's frame is for.
line_table::slot_number line_table::waiting(const heard& frame)
{
  const auto fits = [&](slot_number slot) {
    if (places_[slot].key != key_of(frame.to, frame.vid))
      return 0;
    if (!(frame.code == pppoe::padt ? ends_session(slot, frame) && entries_[slot].server.own() == frame.from
                                    : expects(slot, frame)))
      return 0;
    return frame.host_uniq != 0 && entries_[slot].host_uniq == frame.host_uniq ? 2 : 1;
  };
  slot_number best = 0;
  for (slot_number slot = *chain_of(frame.to); slot != 0; slot = places_[slot].next)
    if (const int fit = fits(slot); fit > 0 && (best == 0 || std::pair(fit, entries_[slot].seen_ns.own()) >
                                                                 std::pair(fits(best), entries_[best].seen_ns.own())))
      best = slot;
  return best;
}

void line_table::client_asks(entry& line, const heard& frame)
{
  const line_state state = line.state.own();
  const bool begins = state == line_state::up || state == line_state::ended;
  const bool again = frame.code == pppoe::padi || state == line_state::requested;
  if (begins) {
    line.first_padi_ns.set(frame.code == pppoe::padi ? frame.now_ns : 0);
    line.retries.set(0);
  } else if (again) {
    line.retries.set(line.retries.own() + 1);
  }
  state_set(line, frame.code == pppoe::padi ? line_state::discovering : line_state::requested);
  line.service_name.set(frame.service_name);
  line.vendor_tag.set(frame.vendor_tag);
  line.host_uniq = frame.host_uniq;
  if (frame.code == pppoe::padr && frame.what != fate::error_answered)  // that one goes to the client
    line.server.set(frame.to);
}

// Of a request, whatever became of it. `slot` is where its client has a line, or 0.
void line_table::from_client(slot_number slot, uint64_t client, const heard& frame)
{
  if (slot == 0)
    slot = make(frame, client);
  if (slot == 0)
    return;
  entry& line = entries_[slot];
  line.changes.begin();
  line.used.set(1);
  line.seen_ns.set(frame.now_ns);
  client_asks(line, frame);
  if (frame.what == fate::error_answered) {
    line.error.set(frame.error);
    line.error_text.set(frame.error_text);
  }
  if (class_of(frame.what) == fate_class::dropped) {
    line.drops.set(line.drops.own() + 1);
    line.last_drop.set(frame.what);
  }
  line.changes.end();
  worth_set(slot, frame.now_ns);
}

void line_table::server_says(entry& line, const heard& frame)
{
  if (frame.error != 0) {
    line.error.set(frame.error);
    line.error_text.set(frame.error_text);
  }
  if (!frame.ac_name.empty())
    line.ac_name.set(frame.ac_name);
  line.server.set(frame.from);
  if (frame.code == pppoe::pado) {
    if (frame.error == 0)
      state_set(line, line_state::offered);
    return;
  }
  if (frame.session_id == 0 || frame.error != 0) {
    state_set(line, line_state::ended);
    return;
  }
  state_set(line, line_state::up);
  line.session_id.set(frame.session_id);
  line.pads_ns.set(frame.now_ns);
  line.setup_ns.set(line.first_padi_ns.own() ? frame.now_ns - line.first_padi_ns.own() : 0);
  line.error.set(0);
}

void line_table::ended(slot_number slot, const heard& frame, bool by_client)
{
  entry& line = entries_[slot];
  line.changes.begin();
  line.seen_ns.set(frame.now_ns);
  line.padt_ns.set(frame.now_ns);
  line.ended_by_client.set(by_client);
  state_set(line, line_state::ended);
  if (frame.error != 0) {
    line.error.set(frame.error);
    line.error_text.set(frame.error_text);
  }
  line.changes.end();
  worth_set(slot, frame.now_ns);
}

void line_table::client_ends(const heard& frame)
{
  if (const slot_number own = of_client(frame.port, frame.vid, frame.from); own != 0 && ends_session(own, frame))
    ended(own, frame, true);
}

void line_table::from_server(const heard& frame)
{
  const slot_number slot = waiting(frame);
  if (slot == 0)
    return;
  if (frame.code == pppoe::padt)
    return ended(slot, frame, false);
  entry& line = entries_[slot];
  line.changes.begin();
  line.seen_ns.set(frame.now_ns);
  server_says(line, frame);
  line.changes.end();
  worth_set(slot, frame.now_ns);
}

void line_table::learn(const frame_record& record, const frame_result& result, uint64_t now_ns)
{
  const bool of_rules = result.ethertype != 0 && result.port >= 1 && result.port <= ports_;
  if (!of_rules || result.what == fate::role)
    return;
  const bool server_code = result.code == pppoe::pado || result.code == pppoe::pads || result.code == pppoe::padt;
  const bool dropped = class_of(result.what) == fate_class::dropped;
  if (!asks(result.code) && (!server_code || dropped))
    return;
  const const_bytes sent{record.data, dropped ? record.received : std::min(result.length, record.capacity)};
  const uint64_t to = be48_at(sent, kernel_header::size);
  const uint64_t from = be48_at(sent, kernel_header::size + 6);
  // A request that was answered with an error has its sender for destination now.
  const uint64_t client = result.what == fate::error_answered ? to : from;
  const slot_number slot = asks(result.code) ? of_client(result.port, result.vid, client) : 0;
  if (is_repeated(slot, result, now_ns))
    return;
  if (slot == 0 && asks(result.code) && invents(result.port, now_ns))
    return unlearned_.add();
  const size_t ethertype = result.ethertype;
  heard frame{.now_ns = now_ns,
              .port = result.port,
              .vid = result.vid,
              .code = result.code,
              .what = result.what,
              .to = to,
              .from = from,
              .session_id = be16_at(sent, ethertype + pppoe::session_id)};
  // A dropped frame may claim more than came.
  const size_t first = ethertype + pppoe::tags;
  const size_t end = std::min(first + be16_at(sent, ethertype + pppoe::payload_length), sent.size());
  tags_note(frame, {sent, first, end}, result.vendor_tag);
  if (asks(frame.code))
    return from_client(slot, client, frame);
  if (frame.code == pppoe::padt)
    client_ends(frame);
  if (!result.of_subscriber)
    from_server(frame);
}

bool line_table::read(size_t slot, line_view& line) const
{
  const entry& from = entries_[slot + 1];
  if (from.used.get() == 0)
    return false;
  return from.changes.read([&] {
    line = {from.port.get(),
            from.vid.get(),
            from.client.get(),
            from.state.get(),
            from.ended_by_client.get(),
            from.server.get(),
            from.session_id.get(),
            from.first_padi_ns.get(),
            from.pads_ns.get(),
            from.padt_ns.get(),
            from.seen_ns.get(),
            from.setup_ns.get(),
            from.retries.get(),
            from.drops.get(),
            from.last_drop.get(),
            from.error.get(),
            from.error.get() != 0 ? from.error_text.get() : std::string(),
            from.ac_name.get(),
            from.service_name.get(),
            from.vendor_tag.get()};
  });
}
