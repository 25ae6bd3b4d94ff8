#include "bench/agent/tap_load.h"

#include "platform/kvbridged/tap.h"
#include "pppoeia/kernel/kernel.h"
#include "tests/support/records_fixture.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <linux/filter.h>
#include <linux/if_tun.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <time.h>

namespace {

using clock_type = std::chrono::steady_clock;

constexpr size_t stamp_size = 8;

uint64_t now_ns()
{
  return static_cast<uint64_t>(clock_type::now().time_since_epoch().count());
}

// One record a port and client, a Host-Uniq tag with room for the time of sending in each.
std::vector<byte_string> records_of(const load_settings& settings)
{
  std::vector<byte_string> records;
  const unsigned count = std::max(settings.clients, settings.ports);
  for (unsigned i = 0; i < count; ++i) {
    test_frame frame;
    frame.port = static_cast<uint16_t>(1 + i % settings.ports);
    frame.tags = {{0x0101, "internet"}, {0x0103, std::string(stamp_size, '\0')}};
    frame.source = {0x02, 0, 0, 0, static_cast<unsigned char>(i >> 8), static_cast<unsigned char>(i)};
    records.push_back(frame.build());
  }
  return records;
}

// Where the stamp is: behind the headers, the service name and the Host-Uniq tag's own header.
const size_t stamp_offset = test_frame{}.tags_offset() + 4 + 8 + 4;

void stamp(byte_string& record)
{
  const uint64_t now = now_ns();
  std::memcpy(&record[stamp_offset], &now, sizeof now);
}

}  // namespace

tap_load::tap_load(const std::string& name) : name_(name), tap_(kvbridged::tap_open(name, 1607))
{
  if (tap_.get() < 0)
    throw std::runtime_error("no TAP device: " + std::string(std::strerror(errno)));
  const descriptor sock(kernel_linux.datagram_socket());
  short flags = 0;
  if (kernel_linux.link_flags_get(sock.get(), name.c_str(), &flags) < 0 ||
      kernel_linux.link_flags_set(sock.get(), name.c_str(), static_cast<short>(flags | link_flag_up)) < 0)
    throw std::runtime_error("the TAP device does not come up");
}

int tap_load::packet_socket() const
{
  int index = 0;
  const int fd = kernel_linux.packet_socket();
  if (fd < 0 || kernel_linux.link_index(fd, name_.c_str(), &index) < 0 || kernel_linux.set_nonblocking(fd) < 0 ||
      kernel_linux.bind_packet(fd, index) < 0)
    throw std::runtime_error("no packet socket");
  kernel_linux.enlarge_buffers(fd, 16 * 1024 * 1024);
  return fd;
}

// Classic BPF that passes everything or nothing on the way from the kernel to this end.
void tap_load::drop_returned(bool drop) const
{
  sock_filter verdict = BPF_STMT(BPF_RET | BPF_K, drop ? 0u : UINT32_MAX);
  sock_fprog program{1, &verdict};
  if (ioctl(tap_.get(), TUNATTACHFILTER, &program) != 0)
    throw std::runtime_error("no filter on the TAP device");
}

load_result tap_load::run(const load_settings& settings)
{
  drop_returned(!settings.counted);
  if (records_.empty() || settings.ports != records_ports_ || settings.clients != records_clients_) {
    records_ = records_of(settings);
    records_ports_ = settings.ports;
    records_clients_ = settings.clients;
  }
  std::vector<double> latencies;
  if (settings.timed)
    latencies.reserve(4'000'000);
  load_result result;
  result.counted = settings.counted;
  unsigned char buffer[4096];
  const auto drain = [&] {
    for (ssize_t size; (size = read(tap_.get(), buffer, sizeof buffer)) > 0;) {
      if (static_cast<size_t>(size) < stamp_offset + stamp_size)
        continue;  // none of ours
      ++result.returned;
      if (!settings.timed)
        continue;
      uint64_t sent_at = 0;
      std::memcpy(&sent_at, buffer + stamp_offset, sizeof sent_at);
      latencies.push_back(static_cast<double>(now_ns() - sent_at) / 1000.0);
    }
  };
  const auto begin = clock_type::now();
  const auto elapsed = [&] { return std::chrono::duration<double>(clock_type::now() - begin).count(); };
  while (elapsed() < settings.seconds) {
    const bool due = settings.rate <= 0 || static_cast<double>(result.sent) < settings.rate * elapsed();
    for (unsigned i = 0; due && i < settings.burst; ++i) {
      byte_string& record = records_[result.sent % records_.size()];
      stamp(record);
      if (write(tap_.get(), record.data(), record.size()) > 0)
        ++result.sent;
    }
    if (settings.counted)
      drain();
  }
  result.seconds = elapsed();
  // What is still on its way gets a moment.
  for (int quiet = 0; settings.counted && quiet < 50 && result.returned < result.sent; ++quiet) {
    const timespec pause{0, 2'000'000};
    nanosleep(&pause, nullptr);
    drain();
  }
  if (!latencies.empty()) {
    std::sort(latencies.begin(), latencies.end());
    result.latency_p50_us = latencies[latencies.size() / 2];
    result.latency_p99_us = latencies[latencies.size() * 99 / 100];
  }
  return result;
}
