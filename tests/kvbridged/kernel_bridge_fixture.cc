#include "tests/kvbridged/kernel_bridge_fixture.h"
#include "platform/kvbridge/record_header.h"
#include "platform/kvbridged/kernel/found_programs.h"

#include <bpf/bpf.h>
#include <chrono>
#include <cstdio>
#include <linux/capability.h>
#include <net/if.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

wire::wire(const std::string& interface)
    : socket_(port_socket_open(interface, port_frames::discovery, 0x88a8)), sender_(interface)
{
  constexpr int room = 64 * 1024 * 1024;
  setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
}

frame_bytes wire::receive(bool waiting)
{
  pollfd wait{socket_.get(), POLLIN, 0};
  if (poll(&wait, 1, waiting ? 10'000 : 0) != 1)
    return {};
  const auto frame = reader_.read(socket_.get());
  return frame ? frame_bytes(frame->bytes.begin(), frame->bytes.end()) : frame_bytes{};
}

bridge_settings settings_of(kernel_settings kernel)
{
  kernel.uplinks.insert("up9");
  return {.name = "br0", .kernel = kernel};
}

bool treat(frame_bytes& record)
{
  record.back() = treated;
  return true;
}

frame_bytes after_agent(frame_bytes frame)
{
  frame.back() = treated;
  return frame;
}

bool wait_until(const std::function<bool()>& condition)
{
  for (int tries = 0; tries < 5000; ++tries) {
    if (condition())
      return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return false;
}

std::optional<uint32_t> port_at(const std::string& interface)
{
  const auto index = static_cast<int>(if_nametoindex(interface.c_str()));
  const auto found = found_programs::at(index);
  const auto role = found ? found->role(index) : std::nullopt;
  return role ? std::optional(*role >> KVB_PORT_SHIFT) : std::nullopt;
}

std::string said(const std::string& command)
{
  std::string text;
  FILE* output = popen(command.c_str(), "r");
  for (int byte; output && (byte = std::fgetc(output)) != EOF;)
    text += static_cast<char>(byte);
  pclose(output);
  return text;
}

void rights_drop(std::initializer_list<unsigned> capabilities)
{
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct rights[2]{};
  syscall(SYS_capget, &header, rights);
  for (const unsigned one : capabilities)
    rights[one / 32].effective &= ~(1u << one % 32);
  syscall(SYS_capset, &header, rights);
}

bool has_qdisc(const std::string& interface)
{
  return run("tc qdisc show dev " + interface + " | grep -q clsact");
}

void serve(loop& events, const std::function<void()>& first)
{
  const descriptor stop(eventfd(0, 0));
  events.watch(stop.get(), [&] { events.end(); });
  std::thread serving([&] {
    first();
    events.run();
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  eventfd_write(stop.get(), 1);
  serving.join();
}

void KernelBridge::SetUp()
{
  if (const std::string why = network_enter(); !why.empty())
    GTEST_SKIP() << why;
  const bpf_insn nothing[] = {{BPF_ALU64 | BPF_MOV | BPF_K, 0, 0, 0, 0}, {BPF_JMP | BPF_EXIT, 0, 0, 0, 0}};
  const descriptor program(bpf_prog_load(BPF_PROG_TYPE_SCHED_CLS, "probe", "", nothing, 2, nullptr));
  if (program.get() < 0)
    GTEST_SKIP() << "this kernel takes no eBPF programs from us";
  if (access("/dev/net/tun", R_OK | W_OK) != 0)
    GTEST_SKIP() << "needs TAP devices";
  kernel_bridge_cable("br0", {"line1", "line2", "up9"});
  run("bridge link set dev line1 isolated on; bridge link set dev line2 isolated on");
}
