#include "bench/agent/bare_loops.h"

#include <sys/select.h>
#include <sys/socket.h>
#include <vector>

void bare_select_loop(const packet_source& source, const std::atomic<bool>& stop, std::atomic<uint64_t>& frames)
{
  const int fd = source.fd;
  std::vector<unsigned char> buffer(1748);
  while (!stop) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    timeval wait{0, 10'000};
    if (select(fd + 1, &readable, nullptr, nullptr, &wait) != 1)
      continue;
    const ssize_t size = recv(fd, buffer.data(), buffer.size(), 0);
    if (size <= 0)
      continue;
    send(fd, buffer.data(), static_cast<size_t>(size), 0);
    frames.fetch_add(1, std::memory_order_relaxed);
  }
}

void bare_batch_loop(const packet_source& source, const std::atomic<bool>& stop, std::atomic<uint64_t>& frames)
{
  constexpr unsigned size = 1748;
  std::vector<unsigned char> buffer(kernel_batch_max * size);
  kernel_record records[kernel_batch_max];
  while (!stop) {
    if (kernel_linux.wait_readable(source, 10) != 1)
      continue;
    int count;
    do {
      for (unsigned i = 0; i < kernel_batch_max; ++i)
        records[i] = {&buffer[i * size], size};
      count = kernel_linux.receive(source, records, kernel_batch_max);
      if (count <= 0)
        break;
      kernel_linux.send(source.fd, records, static_cast<unsigned>(count));
      frames.fetch_add(static_cast<uint64_t>(count), std::memory_order_relaxed);
    } while (count == static_cast<int>(kernel_batch_max) && !stop);
  }
}
