#include "pppoeia/kernel/receive_ring.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <linux/if_packet.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/socket.h>
#include <utility>

namespace {

// A frame has the kernel's header in front, at most 66 bytes, and holds a discovery frame of 211 bytes behind its
// record header: hardly a client sends longer ones.
constexpr unsigned frame_size = 384;
constexpr unsigned kib = 1024;
constexpr unsigned block_size = 64 * kib;
constexpr unsigned frames_per_block = block_size / frame_size;
constexpr unsigned default_size = 1024 * kib;  // 2,720 records
constexpr unsigned largest_size = 64 * 1024 * kib;

static_assert(frame_size % TPACKET_ALIGNMENT == 0);

template <typename T>
bool option_set(int fd, int name, const T& value)
{
  return setsockopt(fd, SOL_PACKET, name, &value, sizeof value) == 0;
}

bool ring_request(int fd, unsigned blocks)
{
  tpacket_req request{};
  request.tp_block_size = block_size;
  request.tp_block_nr = blocks;
  request.tp_frame_size = frame_size;
  request.tp_frame_nr = frames_per_block * blocks;
  return option_set(fd, PACKET_RX_RING, request);
}

}  // namespace

unsigned receive_ring::size_from(const char* wanted)
{
  unsigned size = 0;
  const std::string_view digits = wanted ? wanted : "";
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), size);
  if (error != std::errc{} || end != digits.data() + digits.size() || size < block_size / kib ||
      size > largest_size / kib)
    return default_size;
  return size * kib / block_size * block_size;
}

std::unique_ptr<receive_ring> receive_ring::open(int fd)
{
  static const unsigned size = size_from(std::getenv("PPPOEIA_RING_KIB"));
  constexpr int version = TPACKET_V2;
  constexpr int keep_whole = 1;  // records that a frame cannot hold are queued as on any socket
  if (!option_set(fd, PACKET_VERSION, version) || !option_set(fd, PACKET_COPY_THRESH, keep_whole) ||
      !ring_request(fd, size / block_size))
    return nullptr;
  void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (memory == MAP_FAILED) {
    ring_request(fd, 0);
    return nullptr;
  }
  madvise(memory, size, MADV_DONTFORK);  // a child process must not keep the socket alive
  return std::unique_ptr<receive_ring>(new receive_ring(fd, static_cast<unsigned char*>(memory), size));
}

receive_ring::~receive_ring()
{
  munmap(memory_, size_);
}

unsigned receive_ring::frames() const
{
  return size_ / block_size * frames_per_block;
}

tpacket2_hdr* receive_ring::frame(unsigned index) const
{
  const size_t offset = size_t{index / frames_per_block} * block_size + size_t{index % frames_per_block} * frame_size;
  return reinterpret_cast<tpacket2_hdr*>(memory_ + offset);
}

std::atomic_ref<uint32_t> receive_ring::front_status() const
{
  return std::atomic_ref<uint32_t>(front()->tp_status);
}

bool receive_ring::ready() const
{
  return front_status().load(std::memory_order_acquire) & TP_STATUS_USER;
}

unsigned receive_ring::waiting() const
{
  unsigned count = 0;
  const auto waits = [&](unsigned index) {
    return std::atomic_ref<uint32_t>(frame(index)->tp_status).load(std::memory_order_relaxed) & TP_STATUS_USER;
  };
  while (count < frames() && waits((front_ + count) % frames()))
    ++count;
  return count;
}

void receive_ring::release()
{
  front_status().store(TP_STATUS_KERNEL, std::memory_order_release);
  front_ = (front_ + 1) % frames();
}

// False for a record that is not there whole, since the socket had no room to keep it: it is lost, as any record is
// that finds the socket full.
bool receive_ring::copy_front(kernel_record& record) const
{
  const tpacket2_hdr* header = front();
  const uint32_t held =
      std::min<uint32_t>(header->tp_snaplen, frame_size - std::min<uint32_t>(header->tp_mac, frame_size));
  const uint32_t wanted = std::min<uint32_t>(header->tp_len, record.length);
  if (wanted > held)
    return false;
  std::memcpy(record.data, reinterpret_cast<const unsigned char*>(header) + header->tp_mac, wanted);
  record.length = wanted;
  return true;
}

// The record whose place stands in front, from the socket. False when it was not there, or with `error_` set.
bool receive_ring::receive_front(kernel_record& record)
{
  const ssize_t size = recv(fd_, record.data, record.length, MSG_DONTWAIT);
  if (size < 0) {
    error_ = errno == EAGAIN ? 0 : errno;
    return false;
  }
  record.length = static_cast<uint32_t>(size);
  return true;
}

int receive_ring::error_or_again()
{
  int error = std::exchange(error_, 0);
  socklen_t size = sizeof error;
  if (error == 0)
    getsockopt(fd_, SOL_SOCKET, SO_ERROR, &error, &size);
  errno = error != 0 ? error : EAGAIN;
  return -1;
}

int receive_ring::take(kernel_record* records, unsigned count)
{
  unsigned taken = 0;
  while (taken < count) {
    const uint32_t status = front_status().load(std::memory_order_acquire);
    if (!(status & TP_STATUS_USER))
      break;
    const bool got = status & TP_STATUS_COPY ? receive_front(records[taken]) : copy_front(records[taken]);
    if (error_ != 0)
      break;  // news of the device came first: the record stays
    release();
    if (got)
      ++taken;
  }
  return taken > 0 ? static_cast<int>(taken) : error_or_again();
}
