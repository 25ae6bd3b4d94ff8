// The worker on a real TAP device, with a mapped receive ring and without: records of all sizes through the kernel,
// more of them than there is room for, and a device that goes away and comes back.
#include "platform/kvbridged/tap.h"
#include "pppoeia/agent/worker.h"
#include "pppoeia/kernel/kernel.h"
#include "pppoeia/log.h"
#include "pppoeia/text.h"
#include "tests/support/fake_kernel.h"
#include "tests/support/records_fixture.h"
#include "tests/support/syslog_capture.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <stop_token>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr char device[] = "br0_pppoe";
constexpr size_t header = kernel_header::size;

void up(const char* name, bool wanted)
{
  const int fd = kernel_linux.datagram_socket();
  short flags = 0;
  kernel_linux.link_flags_get(fd, name, &flags);
  kernel_linux.link_flags_set(fd, name, static_cast<short>(wanted ? flags | IFF_UP : flags & ~IFF_UP));
  close(fd);
}

void mtu_set(const char* name, int mtu)
{
  ifreq request{};
  std::strcpy(request.ifr_name, name);
  request.ifr_mtu = mtu;
  const int fd = kernel_linux.datagram_socket();
  EXPECT_EQ(ioctl(fd, SIOCSIFMTU, &request), 0);
  close(fd);
}

// Makes the device again under the index that it had.
descriptor tap_again(int index)
{
  descriptor tap(open("/dev/net/tun", O_RDWR | O_CLOEXEC | O_NONBLOCK));
  ifreq request = {};
  request.ifr_flags = IFF_TAP | IFF_NO_PI;
  std::strcpy(request.ifr_name, device);
  EXPECT_EQ(ioctl(tap.get(), TUNSETIFINDEX, &index), 0);
  EXPECT_EQ(ioctl(tap.get(), TUNSETIFF, &request), 0);
  return tap;
}

// The parameter says whether the packet socket has a ring.
class WorkerOnTap : public testing::TestWithParam<bool> {
protected:
  void SetUp() override
  {
    // A network of the test's own, whose devices end with it.
    if (geteuid() != 0 || unshare(CLONE_NEWNET) != 0 || access("/dev/net/tun", R_OK | W_OK) != 0)
      GTEST_SKIP() << "needs root and TAP devices";
    tap = kvbridged::tap_open(device, 1607);
    ASSERT_GE(tap.get(), 0);
    up(device, true);
    text_copy(bridge->dev_name, device);
    bridge.port(1, 1, 0);
    bridge->sock = kernel_linux.packet_socket();
    ASSERT_EQ(kernel_linux.link_index(bridge->sock, device, &index), 0);
    ASSERT_EQ(kernel_linux.set_nonblocking(bridge->sock), 0);
    ASSERT_EQ(kernel_linux.bind_packet(bridge->sock, index), 0);
    if (GetParam()) {
      bridge->ring = kernel_linux.ring_open(bridge->sock);
      if (!bridge->ring && errno == ENOPROTOOPT)
        GTEST_SKIP() << "this system knows no rings";
      ASSERT_NE(bridge->ring, nullptr);
    }
    syslog_take();
    ASSERT_EQ(worker_thread_start(*bridge), 0);
    running = true;
  }
  void TearDown() override
  {
    if (!running)
      return;
    const auto before = std::chrono::steady_clock::now();
    bridge->stop = 1;
    EXPECT_EQ(worker_thread_join(*bridge), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(10));
    kernel_linux.ring_close(bridge->ring);
    close(bridge->sock);
  }

  void put(const byte_string& record) const { (void)!write(tap.get(), record.data(), record.size()); }
  // Whether a PADI written to the device comes back with the tag, within some seconds of trying.
  bool serves()
  {
    const byte_string record = test_frame{}.build();
    for (int tries = 0; tries < 60; ++tries) {
      put(record);
      for (byte_string back; !(back = wire_receive_file(100)).empty();)
        if (back.size() > record.size() && back[header + 12] == 0x88 && back[header + 13] == 0x63)
          return true;
    }
    return false;
  }
  byte_string wire_receive_file(int milliseconds) const
  {
    pollfd wait{tap.get(), POLLIN, 0};
    if (poll(&wait, 1, milliseconds) != 1)
      return {};
    byte_string record(4096);
    const ssize_t size = read(tap.get(), record.data(), record.size());
    record.resize(size > 0 ? static_cast<size_t>(size) : 0);
    return record;
  }
  // A record that says who sent it as which, with that many bytes behind it.
  static byte_string numbered(unsigned char who, unsigned number, unsigned trailer)
  {
    test_frame frame;
    const auto byte = [number](int shift) { return static_cast<unsigned char>(number >> shift); };
    frame.source = {2, 0, who, byte(16), byte(8), byte(0)};
    frame.trailer.assign(trailer, static_cast<unsigned char>(number));
    return frame.build();
  }
  packet_queue queue()
  {
    packet_queue now{};
    EXPECT_EQ(kernel_linux.queue_read({bridge->sock, bridge->ring}, &now), 0);
    return now;
  }
  long losses() const
  {
    const std::vector<std::string> lines = syslog_take_texts();
    return std::count(lines.begin(), lines.end(), "<br0> Pseudo device 'br0_pppoe' is gone.");
  }
  // Whether the loss of the device is told, within some seconds, and once.
  bool told_of_loss() const
  {
    long told = 0;
    for (int tries = 0; tries < 500 && told == 0; ++tries) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      told = losses();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return told + losses() == 1;
  }
  double cpu_ms()
  {
    clockid_t clock;
    timespec time{};
    pthread_getcpuclockid(bridge->thread, &clock);
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
  }

  test_bridge bridge{4};
  descriptor tap;
  int index = -1;
  bool running = false;
};

// Two senders at once, so that two cores write into the ring; a bridge that is off gives all back as it came.
TEST_P(WorkerOnTap, RecordsOfAllSizesComeBackAsTheyWereAndInOrder)
{
  constexpr unsigned each = 3000;
  constexpr unsigned on_the_way_most = 32;
  bridge->disabled = 1;
  std::atomic<unsigned> came[2] = {0, 0};
  const auto sender = [&](const std::stop_token& stop, unsigned char who) {
    for (unsigned i = 0; i < each; ++i) {
      put(numbered(who, i, i * 7 % 1476));
      while (i >= came[who] + on_the_way_most && !stop.stop_requested())
        std::this_thread::yield();
    }
  };
  std::jthread first(sender, static_cast<unsigned char>(0)), second(sender, static_cast<unsigned char>(1));
  while (came[0] + came[1] < 2 * each) {
    const byte_string back = wire_receive_file(2000);
    ASSERT_FALSE(back.empty()) << came[0] << " and " << came[1] << " came back";
    const unsigned char who = back.at(header + 8);
    ASSERT_LT(who, 2);
    ASSERT_EQ(back, numbered(who, came[who], came[who] * 7 % 1476));
    ++came[who];
  }
}

// A grown record may be longer than the device's MTU lets out: the MTU follows the longest one. Alone, and in a batch.
TEST_P(WorkerOnTap, TheMtuIsRaisedForARecordThatIsLonger)
{
  EXPECT_TRUE(serves());
  syslog_take();
  const int fd = bridge->sock;
  const auto mtu = [&] {
    int now = 0;
    kernel_linux.link_mtu(fd, device, &now);
    return now;
  };
  mtu_set(device, 200);
  byte_string back;
  const auto passes = [&](unsigned trailer) {
    const byte_string record = numbered(7, trailer, trailer);
    put(record);
    do
      back = wire_receive_file(2000);
    while (!back.empty() && (back.size() < header + 12 || back[header + 8] != 7));
    return back.size() == record.size() + 35;
  };
  EXPECT_TRUE(passes(10));
  EXPECT_EQ(mtu(), 200);
  EXPECT_TRUE(passes(300));
  EXPECT_EQ(mtu(), static_cast<int>(back.size()) - 14);
  bridge->disabled = 1;
  {
    const bridge_lock lock(*bridge);
    for (unsigned i = 0; i < 8; ++i)
      put(numbered(8, i, 400 + 100 * i % 300));
    EXPECT_EQ(queue().waiting, GetParam() ? 8u : 0u);
  }
  for (unsigned i = 0; i < 8; ++i)
    EXPECT_EQ(wire_receive_file(2000), numbered(8, i, 400 + 100 * i % 300));
  EXPECT_EQ(bridge->mtu, 1500);
  EXPECT_TRUE(syslog_take().empty()) << "nothing is lost or refused";
}

// While the worker cannot take its lock, more arrives than ring and socket hold.
TEST_P(WorkerOnTap, WhatFindsNoRoomIsLostAndTheRestComesInOrder)
{
  EXPECT_TRUE(serves());
  bridge->disabled = 1;
  constexpr unsigned count = 12'000;
  {
    const bridge_lock lock(*bridge);
    for (unsigned i = 0; i < count; ++i)
      put(numbered(0, i, i % 10 == 0 ? 1400 : 20));
    const packet_queue full = queue();
    EXPECT_GT(full.lost, 100u);
    EXPECT_EQ(full.waiting, GetParam() ? 2720u : 0u);
  }
  unsigned after = 0;
  unsigned came = 0;
  for (byte_string back; !(back = wire_receive_file(200)).empty(); ++came) {
    const unsigned number = static_cast<unsigned>(back[header + 9] << 16 | back[header + 10] << 8 | back[header + 11]);
    ASSERT_GE(number, after);
    ASSERT_EQ(back, numbered(0, number, number % 10 == 0 ? 1400 : 20));
    after = number + 1;
  }
  EXPECT_GT(came, 100u);
  EXPECT_LT(came, count);
  bridge->disabled = 0;
  EXPECT_TRUE(serves());
}

TEST_P(WorkerOnTap, ADeviceThatIsDownIsAwaitedWithoutSpinning)
{
  EXPECT_TRUE(serves());
  up(device, false);
  const double before = cpu_ms();
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_LT(cpu_ms() - before, 250) << "of 500 ms";
  EXPECT_TRUE(told_of_loss());
  for (int again = 0; again < 2; ++again) {
    up(device, true);
    EXPECT_TRUE(serves());
    up(device, false);
    EXPECT_TRUE(told_of_loss());
  }
}

TEST_P(WorkerOnTap, ADeviceThatIsDeletedMayComeBackUnderItsIndex)
{
  EXPECT_TRUE(serves());
  tap = descriptor();
  EXPECT_TRUE(told_of_loss());
  tap = tap_again(index);
  up(device, true);
  EXPECT_TRUE(serves());
  EXPECT_EQ(losses(), 0);
  tap = descriptor();  // and the worker ends while it is away
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

TEST(KernelLinux, AsksTheKernel)
{
  const int fd = kernel_linux.datagram_socket();
  unsigned char mac[6] = {1, 2, 3, 4, 5, 6};
  EXPECT_EQ(kernel_linux.link_mac(fd, "none", mac), -1);
  EXPECT_EQ(mac[5], 6);
  EXPECT_EQ(kernel_linux.link_mac(fd, "lo", mac), 0);
  EXPECT_EQ(std::count(mac, mac + 6, 0), 6);
  int index = 0;
  ifreq request{.ifr_ifrn = {"lo"}, .ifr_ifru = {}};
  EXPECT_EQ(kernel_linux.control(fd, SIOCGIFINDEX, &request), 0);
  EXPECT_EQ(kernel_linux.link_index(fd, "lo", &index), 0);
  EXPECT_EQ(request.ifr_ifindex, index);
  short flags = 0;
  int mtu = 0;
  EXPECT_EQ(kernel_linux.link_flags_get(fd, "lo", &flags), 0);
  EXPECT_NE(flags & IFF_LOOPBACK, 0);
  EXPECT_EQ(kernel_linux.link_flags_get(fd, "none", &flags), -1);
  EXPECT_EQ(kernel_linux.link_flags_set(fd, "none", flags), -1);
  EXPECT_EQ(kernel_linux.link_mtu(fd, "none", &mtu), -1);
  EXPECT_EQ(kernel_linux.link_index(fd, "none", &index), -1);
  EXPECT_EQ(kernel_linux.bind_packet(fd, index), -1);
  EXPECT_EQ(std::pair(mtu, index), std::pair(0, request.ifr_ifindex));
  packet_queue queue{};
  EXPECT_EQ(kernel_linux.queue_read({fd, nullptr}, &queue), -1);
  close(fd);
  EXPECT_EQ(kernel_linux.set_nonblocking(fd), -1);
}

// The system's limit binds who may not administer the network.
TEST(KernelLinux, BuffersGrowAsFarAsTheyMay)
{
  const auto grow = [](int wanted) {
    const int small = 4096;
    const int fd = kernel_linux.datagram_socket();
    for (const int buffer : {SO_RCVBUF, SO_SNDBUF})
      setsockopt(fd, SOL_SOCKET, buffer, &small, sizeof small);
    kernel_linux.enlarge_buffers(fd, wanted);
    int least = wanted * 2;  // as the kernel counts
    for (const int buffer : {SO_RCVBUF, SO_SNDBUF}) {
      int now = 0;
      socklen_t size = sizeof now;
      getsockopt(fd, SOL_SOCKET, buffer, &now, &size);
      least = std::min(least, now);
    }
    close(fd);
    return least;
  };
  constexpr int plenty = 64 << 20;
  const pid_t child = fork();
  if (child == 0)
    _exit((geteuid() != 0 || (grow(plenty) == 2 * plenty && setuid(65534) == 0)) && grow(plenty) < 2 * plenty &&
                  grow(16384) == 2 * 16384
              ? 0
              : 1);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

INSTANTIATE_TEST_SUITE_P(Roads, WorkerOnTap, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& road) { return road.param ? "Ring" : "Socket"; });

}  // namespace
