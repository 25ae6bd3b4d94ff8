// Who is on which line: what the discovery frames of each client tell of its dial-in.
//
//   discovering --PADO--> offered --PADR--> requested --PADS--> up --PADT, of either side--> ended
//        ^                                      |
//        +------------ PADI, again -------------+--PADS with an error--> ended
//
// A line is a client (its MAC address) on a port and VLAN. Clients make lines; frames of a server only go on with one
// that waits for them: a PADO for who discovers, a PADS for who requested, a PADT of the session's own id. Where a MAC
// address is on several lines, the one whose Host-Uniq the server repeats is meant, else the one last heard of.
//
// Bounded: a port has room for 16 clients and the node for 65,536, so that a port that invents clients pushes out its
// own only: ended ones first, then those on their way, then those that are up, the longest unheard each. No more than
// 16 times its room a second: what it invents beyond is not read, so that a flood costs the worker a look. Written by
// the bridge's worker alone. Readers copy a line at a time and hold nobody up.
#ifndef PPPOEIA_STATUS_LINE_TABLE_H
#define PPPOEIA_STATUS_LINE_TABLE_H

#include "base/packed.h"
#include "pppoeia/frame/path.h"
#include "pppoeia/status/shared.h"

#include <cstdint>
#include <string>
#include <string_view>

enum class line_state : uint8_t { discovering, offered, requested, up, ended };
inline constexpr size_t line_state_count = 5;
inline constexpr std::string_view line_state_names[line_state_count] = {"discovering", "offered", "requested", "up",
                                                                        "ended"};

// A copy of a line. Times are of the steady clock; 0 for what has not been.
struct line_view {
  uint32_t port;
  uint16_t vid;
  uint64_t client;
  line_state state;
  bool ended_by_client;
  uint64_t server;
  uint16_t session_id;
  uint64_t first_padi_ns;  // of the last dial-in
  uint64_t pads_ns;
  uint64_t padt_ns;
  uint64_t seen_ns;
  uint64_t setup_ns;  // from the first PADI to the PADS
  uint32_t retries;   // PADI and PADR sent again in the last dial-in
  uint32_t drops;     // of its frames
  fate last_drop;     // while there are any
  uint16_t error;     // tag of the last error; 0: none
  std::string error_text;
  std::string ac_name;
  std::string service_name;
  std::string vendor_tag;  // as sent: value of the tag, from the vendor id on
};

struct line_limits {
  uint32_t port = 16;
  uint32_t node = 65536;
};

class line_table {
public:
  // Throws std::bad_alloc.
  line_table(uint32_t ports, line_limits limits);
  ~line_table();
  line_table(const line_table&) = delete;
  line_table& operator=(const line_table&) = delete;

  // The worker's: a frame that `result` tells of; `record` is as the frame path left it.
  void learn(const frame_record& record, const frame_result& result, uint64_t now_ns);

  // Places to look at, 0 to slots() - 1. False for one that has no line.
  size_t slots() const { return size_t{ports_} * per_port_; }
  bool read(size_t slot, line_view& line) const;

  // How many lines there are in that state.
  uint32_t count(line_state state) const { return counts_[static_cast<size_t>(state)].get(); }
  const tally& replaced() const { return replaced_; }    // lines that made room for others
  const tally& unlearned() const { return unlearned_; }  // frames of clients that found none

private:
  struct entry;
  struct heard;
  using slot_number = uint32_t;  // 0 is none: a place's index and 1
  // What a search reads of an entry, beside the entries, so that it touches little memory; worker only.
  struct place {
    uint64_t key;      // client, VLAN; 0: no line
    uint32_t worth;    // the least is given up first: 0 for no line, else state and when it was last heard
    slot_number next;  // of the same bucket
  };

  uint32_t* chain_of(uint64_t client) { return &by_client_[client * 0x9e3779b97f4a7c15u >> bucket_shift_]; }
  slot_number of_client(uint32_t port, uint16_t vid, uint64_t client) const;
  slot_number make(const heard& frame, uint64_t client);
  bool invents(uint32_t port, uint64_t now_ns) const;
  void count_pushed(uint32_t port, uint64_t now_ns);
  slot_number waiting(const heard& frame);
  slot_number victim(uint32_t port) const;
  static uint32_t worth_of(line_state state, uint64_t now_ns);
  bool is_repeated(slot_number slot, const frame_result& result, uint64_t now_ns);
  void worth_set(slot_number slot, uint64_t now_ns);
  bool take_from_node();
  void unlink(slot_number slot);
  void count_change(line_state state, int by);
  void state_set(entry& line, line_state state);
  void from_client(slot_number slot, uint64_t client, const heard& frame);
  void client_ends(const heard& frame);
  void from_server(const heard& frame);
  void client_asks(entry& line, const heard& frame);
  void server_says(entry& line, const heard& frame);
  void ended(slot_number slot, const heard& frame, bool by_client);
  bool ends_session(slot_number slot, const heard& frame) const;
  bool expects(slot_number slot, const heard& frame) const;

  uint32_t ports_;
  uint32_t per_port_;
  uint32_t node_most_;
  unsigned bucket_shift_;
  size_t hand_ = 0;    // where a search for an ended line goes on
  uint32_t made_ = 0;  // lines there are
  zeroed<entry> entries_;
  zeroed<place> places_;
  zeroed<uint32_t> by_client_;
  zeroed<uint64_t> pushed_;  // by port: the second in which lines were last pushed out, and how many
  shared<uint32_t> counts_[line_state_count];
  tally replaced_;
  tally unlearned_;
};

#endif
