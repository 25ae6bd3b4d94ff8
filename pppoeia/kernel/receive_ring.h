// The mapped receive ring of a packet socket: the kernel writes records into memory that the worker reads, so that
// receiving one costs a copy and no system call. A socket that has a ring puts everything there; records longer than a
// ring frame are kept whole by the socket, and the ring holds their place.
//
// Linux only (packet(7), version 2 of the ring). A system that grants no ring is served by plain receives.
#ifndef PPPOEIA_KERNEL_RECEIVE_RING_H
#define PPPOEIA_KERNEL_RECEIVE_RING_H

#include "pppoeia/kernel/kernel.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

struct tpacket2_hdr;

// Used by one thread at a time. Must end before its socket is closed: the mapping keeps the socket alive.
class receive_ring {
public:
  // The size in bytes of a ring for which `wanted` KiB were asked: whole blocks of 64 KiB, 64 MiB at most. What is no
  // such number, or null, gives 1 MiB.
  static unsigned size_from(const char* wanted);

  // Gives `fd`, a packet socket, a ring of the size that PPPOEIA_RING_KIB names; what waited on it is lost. Null when
  // the system refuses, and the socket is as before.
  static std::unique_ptr<receive_ring> open(int fd);
  ~receive_ring();
  receive_ring(const receive_ring&) = delete;
  receive_ring& operator=(const receive_ring&) = delete;

  // Whether a record waits.
  bool ready() const;

  // How many wait.
  unsigned waiting() const;

  // Takes the records that wait, at most `count`, each cut to the room that its `length` gives. Their number; or -1
  // when there is none, with errno EAGAIN, or with what the socket reports about its device.
  int take(kernel_record* records, unsigned count);

private:
  receive_ring(int fd, unsigned char* memory, unsigned size) : fd_(fd), memory_(memory), size_(size) {}

  unsigned frames() const;
  tpacket2_hdr* frame(unsigned index) const;
  tpacket2_hdr* front() const { return frame(front_); }
  std::atomic_ref<uint32_t> front_status() const;
  void release();
  bool copy_front(kernel_record& record) const;
  bool receive_front(kernel_record& record);
  int error_or_again();

  int fd_;
  unsigned char* memory_;
  unsigned size_;       // in bytes
  unsigned front_ = 0;  // index of the frame that is taken next
  int error_ = 0;       // that the socket reported and nobody was told yet
};

#endif
