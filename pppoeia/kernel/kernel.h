// What the agent needs of the kernel, as one narrow record of functions: kernel_linux.cc makes the real calls (those of
// the mapped receive ring are in receive_ring.cc), the tests put one in its place that plays the kernel modules on
// socket pairs, or that fails when told.
//
// All functions report as the system calls do: a value that is not negative, or -1 with errno set, and write their
// output only on success.
#ifndef PPPOEIA_KERNEL_KERNEL_H
#define PPPOEIA_KERNEL_KERNEL_H

#include "base/descriptor.h"

#include <cstddef>
#include <cstdint>

// One record on its way in or out.
struct kernel_record {
  unsigned char* data;
  uint32_t length;  // in: room; after a receive: bytes received; out: bytes to send
};

// Records that a send could not pass on and that are lost.
struct send_refusals {
  uint32_t count;   // 0: all went out
  int error;        // of the last one, an errno value
  uint32_t length;  // of the last one, bytes
};

// What a packet socket tells of its queue.
struct packet_queue {
  uint32_t lost;     // records that found no room since the last time
  uint32_t waiting;  // in its mapped ring; 0 where there is none
};

class receive_ring;

// Where a worker's records come from.
struct packet_source {
  int fd;
  receive_ring* ring;  // of the socket; null: it has none, and every record is received from the socket
};

struct kernel_ops {
  // Control files. open_control opens read-only, close-on-exec.
  int (*open_control)(const char* path);
  int (*control)(int fd, unsigned long request, void* argument);
  int (*close)(int fd);

  // Network devices; `fd` is any socket of datagram_socket(). Names are cut to 15 characters.
  int (*datagram_socket)();
  int (*link_flags_get)(int fd, const char* device, short* flags);
  int (*link_flags_set)(int fd, const char* device, short flags);
  int (*link_index)(int fd, const char* device, int* index);
  int (*link_mtu)(int fd, const char* device, int* mtu);
  int (*link_mac)(int fd, const char* device, unsigned char mac[6]);

  // The raw packet socket that sees every protocol of one device.
  int (*packet_socket)();
  int (*set_nonblocking)(int fd);
  int (*bind_packet)(int fd, int index);
  // Room for bursts; best effort, nothing fails when the kernel grants less.
  void (*enlarge_buffers)(int fd, int bytes);

  // A mapped receive ring for a bound packet socket, or null where there is none to be had: never an error. What
  // waited on the socket is lost. ring_close comes before the socket is closed; null is allowed.
  receive_ring* (*ring_open)(int fd);
  void (*ring_close)(receive_ring* ring);

  // 1 when a record, or news of the device, can be received, 0 when there was none for `milliseconds`.
  int (*wait_readable)(const packet_source& source, int milliseconds);
  // Takes as many waiting records as there are, up to `count`, without waiting; their number, or -1.
  int (*receive)(const packet_source& source, kernel_record* records, unsigned count);
  // Sends the records in order, at most kernel_batch_max. A record that cannot be sent is lost, the others still go
  // out. For one that is longer than the device's MTU lets out, the MTU is raised first: a record may be as long as the
  // largest frame that a bridge forwards and the kernel bridge's header in front of it.
  send_refusals (*send)(int fd, const kernel_record* records, unsigned count);
  int (*queue_read)(const packet_source& source, packet_queue* queue);
};

// The functions in use. Points to kernel_linux unless a test replaced it before any bridge existed.
extern const kernel_ops* kernel;
extern const kernel_ops kernel_linux;

// A descriptor that was had from these functions, and goes back to them.
struct kernel_close {
  void operator()(int fd) const { kernel->close(fd); }
};
using kernel_descriptor = owned_descriptor<kernel_close>;

inline constexpr unsigned kernel_batch_max = 32;

// A device flag, so that logic needs no system header.
inline constexpr short link_flag_up = 0x1;

#endif
