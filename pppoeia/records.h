// The agent's whole state: one tree of records in memory, nothing of it persistent.
//
//   pppoeia_globals -> bridges (newest first) -> port[] -> port_vlans (ascending VLAN id)
//                                             -> vlans (ascending VLAN id)
//
// Each bridge has one mutex. Its worker takes it for every frame, and every operation that reads or changes what a
// frame's treatment depends on takes it too. No thread holds two, so there is no order to keep. The list of bridges
// has no lock: only the management thread (the one that serves requests) walks or changes it, the workers never see
// it. For the same reason look-ups by the management thread need no lock: it is the only writer of configuration.
// What a worker writes and the management thread reads without the mutex is atomic.
#ifndef PPPOEIA_RECORDS_H
#define PPPOEIA_RECORDS_H

#include "pppoeia/api/settings.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <pthread.h>

class bridge_status;
class receive_ring;

// 4096 bits, one a VLAN id: bit `vid & 31` of word `vid >> 5`. Ids above 4095 count by their low 12 bits.
struct vlan_set {
  uint32_t word[128];

  bool test(uint32_t vid) const { return (word[(vid & 0xfff) >> 5] >> (vid & 31)) & 1; }
  void set(uint32_t vid) { word[(vid & 0xfff) >> 5] |= 1u << (vid & 31); }
  void clear(uint32_t vid) { word[(vid & 0xfff) >> 5] &= ~(1u << (vid & 31)); }
};

enum : uint32_t {
  bridge_format_max = sizeof(bridge_settings::pppoeia_cid_format) - 1,  // characters
  port_count_max = 65536,                                               // the frame header's port field has 16 bits
};

// A VLAN enabled by name on a bridge. Owned by the bridge's `vlans`.
struct pppoeia_vlan {
  pppoeia_vlan* next;  // higher id
  pppoeia_vlan* prev;  // lower id; null at the head
  uint16_t vlan_id;
  char name[vlan_name_max + 1];  // empty at creation
};

// Identifier settings of one port and VLAN. Owned by the port's `port_vlans`; exists only while it carries something.
struct pppoeia_port_vlan : entry_settings {
  pppoeia_port_vlan* next;  // higher id
  pppoeia_port_vlan* prev;  // null at the head
  uint16_t vlan_id;
};

// One subscriber or network interface of a bridge; element n - 1 of the bridge's array is port n. A port exists
// exactly when the first character of `dev_name` is not NUL. Guarded by the bridge's mutex.
struct pppoeia_port : port_settings {
  uint32_t port_id;  // set at add, kept when the port is removed
  vlan_set vlan_info;
  pppoeia_stats stats;
  pppoeia_port_vlan* port_vlans;
};

// One bridge instance. Allocated zero-filled as one block with its ports by pppoeia_bridge_add(), freed by
// pppoeia_bridge_del(). Fields are guarded by `mutex` unless said otherwise.
struct pppoeia_bridge : bridge_settings {
  pppoeia_bridge* next;  // older bridge; management thread only
  uint32_t ports;
  pthread_mutex_t mutex;
  pthread_t thread;                // management thread only
  std::atomic<uint32_t> disabled;  // 1: frames go back as they came
  std::atomic<uint32_t> stop;      // 1: the worker ends
  char name[17];                   // fixed for life
  char dev_name[16];               // fixed for life
  int32_t sock;                    // fixed until the worker has ended
  receive_ring* ring;              // of `sock`, or null; worker only while it runs
  int32_t ctl_fd;                  // worker only while it runs
  bridge_status* status;           // what the worker tells, or null: it tells nothing; fixed until it has ended
  int32_t mtu;                     // fixed for life
  unsigned char* frame_buffer;     // slots of the receive buffer (frame_buffers.h); fixed for life
  uint16_t stag_ethertype;         // host order; fixed for life
  uint32_t buffer_size;            // fixed for life
  uint32_t board_pos;              // fixed for life
  vlan_set vlan_enabled;
  uint32_t port_count;
  uint32_t active_ports;
  pppoeia_stats stats;
  pppoeia_vlan* vlans;

  // Of the frame being processed; worker only.
  int32_t rx_len;             // byte count of the last receive
  unsigned char* frame_end;   // one past the received record
  uint32_t cur_port;          // zero-based index of the input port
  uint64_t frame_client_mac;  // source MAC, first byte in bits 40..47

  // Of the frame last received, for identifier queries by the management thread beside the running worker: header
  // words, the first in the high half, the second in the low half.
  std::atomic<uint32_t> frame_vlan_words;

  // Operations that wait for `mutex`: a worker under full load steps back when it is not zero.
  std::atomic<uint32_t> waiters;

  pppoeia_port port[1];  // port_count + 1 of them
};

// Whether the port is one that leads to servers by its kind.
inline bool port_is_uplink(const port_settings& port)
{
  return port.port_info_extra == port_kind_uplink || port.port_info_extra == port_kind_uplink_too;
}

// Whether a port of that state may be where servers answer from.
inline bool is_network_side(int32_t state)
{
  return state == port_side_network || state == port_side_any;
}

// Bytes of the record of a bridge with that many ports.
inline size_t bridge_record_size(uint32_t ports)
{
  return sizeof(pppoeia_bridge) + size_t{ports} * sizeof(pppoeia_port);  // one port is in the record itself
}

// The agent's state between pppoeia_init() and pppoeia_fini().
struct pppoeia_state {
  pppoeia_bridge* bridges;
};

// Null while the agent is not initialised. Written by the management thread; the main thread reads it at exit.
extern std::atomic<pppoeia_state*> pppoeia_globals;

// Bytes in front of the frame as the management plane counts them: taken from a record's length for the size that is
// logged, added to the MTU for the receive buffer. 0 until the first bridge is added, 106 from then on.
extern std::atomic<uint32_t> pppoeia_frame_adjust;

// Holds a bridge's mutex for a scope, and tells the worker that somebody waits for it.
class bridge_lock {
public:
  explicit bridge_lock(pppoeia_bridge& bridge) : bridge_(bridge)
  {
    bridge_.waiters.fetch_add(1, std::memory_order_relaxed);
    pthread_mutex_lock(&bridge_.mutex);
    bridge_.waiters.fetch_sub(1, std::memory_order_relaxed);
  }
  ~bridge_lock() { pthread_mutex_unlock(&bridge_.mutex); }
  bridge_lock(const bridge_lock&) = delete;
  bridge_lock& operator=(const bridge_lock&) = delete;

private:
  pppoeia_bridge& bridge_;
};

// Bridge of that name, or null (also while the agent is not initialised). Management thread.
pppoeia_bridge* bridge_find(const char* name);

// Port `id` of the bridge, or null when the id is 0 or not below `port_count`, or no port was added there.
pppoeia_port* port_find(pppoeia_bridge& bridge, uint32_t id);
const pppoeia_port* port_find(const pppoeia_bridge& bridge, uint32_t id);

// The port's entry for the VLAN, or null. The id is compared whole, all 16 bits.
pppoeia_port_vlan* port_vlan_find(const pppoeia_port& port, uint16_t vid);

// The bridge's named VLAN, or null.
pppoeia_vlan* vlan_find(const pppoeia_bridge& bridge, uint16_t vid);

#endif
