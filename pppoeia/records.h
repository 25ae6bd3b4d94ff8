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

#include "pppoeia/api/records.h"

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
  bridge_name_max = 10,        // characters
  bridge_format_max = 128,     // characters of a bridge-wide format
  port_vlan_format_max = 127,  // characters of a format of one port and VLAN
  port_count_max = 65536,      // the frame header's port field has 16 bits
};

// A VLAN enabled by name on a bridge. Owned by the bridge's `vlans`.
struct pppoeia_vlan {
  pppoeia_vlan* next;  // higher id
  pppoeia_vlan* prev;  // lower id; null at the head
  uint16_t vlan_id;
  char name[32];  // at most 31 characters, empty at creation
};

// Identifier settings of one port and VLAN. Owned by the port's `port_vlans`; exists only while it carries something.
struct pppoeia_port_vlan {
  pppoeia_port_vlan* next;  // higher id
  pppoeia_port_vlan* prev;  // null at the head
  uint16_t vlan_id;
  int32_t cid_mode;  // -1 until set
  char cid_format[129];
  char rid_format[129];
};

// One subscriber or network interface of a bridge; element n - 1 of the bridge's array is port n. A port exists
// exactly when the first character of `dev_name` is not NUL. Guarded by the bridge's mutex.
struct pppoeia_port {
  uint32_t port_id;  // set at add, kept when the port is removed
  char dev_name[17];
  char port_name[15];
  char intf_descr[65];
  char cpe_serial[13];
  uint8_t cpe_mac[6];  // transmission order
  pppoeia_location location;
  char type[12];
  int32_t state;   // 0 PPPoE disabled, 1 subscriber side, 2 network side, any other: every code passes
  uint32_t trust;  // 1 untrusted: no vendor tag may come in
  char remote_id[64];
  vlan_set vlan_info;
  pppoeia_stats stats;
  uint32_t vsa_circuit_id_mode;
  int32_t vpi;
  int32_t vci;
  uint32_t parent_id;
  uint32_t port_info_extra;  // port kind; 1 and 5 are exempt from the VLAN check
  pppoeia_port_vlan* port_vlans;
};

// One bridge instance. Allocated zero-filled as one block with its ports by pppoeia_bridge_add(), freed by
// pppoeia_bridge_del(). Fields are guarded by `mutex` unless said otherwise.
struct pppoeia_bridge {
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
  uint32_t max_pdu;
  unsigned char* frame_buffer;  // slots of the receive buffer (frame_buffers.h); fixed for life
  uint16_t stag_ethertype;      // host order; fixed for life
  uint32_t buffer_size;         // fixed for life
  uint32_t board_pos;           // fixed for life
  char vendor[20];
  char shelf_id[40];
  uint32_t chassis_id;
  char contact[65];
  char location[65];
  char sysname[65];
  uint32_t vsa_mode;
  uint32_t vsa_insert_circuit_id;
  uint32_t vsa_insert_remote_id;
  vlan_set vlan_enabled;
  uint32_t port_count;
  uint32_t active_ports;
  pppoeia_stats stats;
  uint32_t vsa_circuit_id_cvlan;
  char pppoeia_cid_format[129];
  char pppoeia_rid_format[129];
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
