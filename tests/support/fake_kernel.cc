#include "tests/support/fake_kernel.h"

#include "platform/kvbridge/control.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

// State behind the functions, which take no context. Guarded: the worker calls them too.
std::mutex guard;
fake_kernel* fake;
std::map<int, int> table;          // open descriptor -> peer, of a packet socket
std::map<std::string, int> wires;  // device -> peer
std::map<std::string, int> calls;
std::map<int, std::string> indices;
int last_index = 0;

// Whether the step of that name is to fail now; sets errno.
bool fails(const std::string& step)
{
  const int call = ++calls[step];
  for (const std::string& key : {step, step + "@" + std::to_string(call)}) {
    if (const auto at = fake->failing.find(key); at != fake->failing.end()) {
      errno = at->second;
      return true;
    }
  }
  return false;
}

int keep(const std::string& step, int fd, int peer = -1)
{
  if (fd > 0 && step == fake->at_zero && !table.contains(0)) {
    dup2(fd, 0);
    close(std::exchange(fd, 0));
  }
  table[fd] = peer;
  return fd;
}

bool path_exists(const std::string& path)
{
  if (path == kvmng_path || path == kvbridge_path)
    return true;
  for (const std::string& name : fake->bridges)
    if (path == kvbridge_bridge_path(name))
      return true;
  return false;
}

int refused(int error)
{
  errno = error;
  return -1;
}

// A step fails as the test wants it, or does its work.
template <typename Work>
int step(const std::string& name, Work work)
{
  const std::lock_guard lock(guard);
  return fails(name) ? -1 : work();
}

int open_control(const char* path)
{
  const std::string name = std::string("open:") + path;
  return step(
      name, [&] { return path_exists(path) ? keep(name, open("/dev/null", O_RDONLY | O_CLOEXEC)) : refused(ENOENT); });
}

int answer(void* argument, const void* value, size_t size)
{
  std::memcpy(argument, value, size);
  return 0;
}

int device_create(const char* name)
{
  return fake->devices.insert(name).second ? 0 : refused(EEXIST);
}

void device_forget(const std::string& name)
{
  fake->devices.erase(name);
  std::erase_if(indices, [&](const auto& index) { return index.second == name; });
}

int answer_control(unsigned long request, void* argument)
{
  switch (request) {
  case kvmng_version_get:
    return answer(argument, &fake->kvmng_version, sizeof(int));
  case kvbridge_version_get:
    return answer(argument, &fake->kvbridge_version, sizeof(int));
  case kvbridge_info_get:
    return answer(argument, &fake->stag_ethertype, sizeof fake->stag_ethertype);
  case kvmng_device_create:
    return device_create(static_cast<const char*>(argument));
  case kvmng_device_delete:
    device_forget(static_cast<const char*>(argument));
    return 0;
  case kvbridge_filter_attach:
    return 0;
  default:
    return refused(ENOTTY);
  }
}

int control(int, unsigned long request, void* argument)
{
  char name[32];
  std::snprintf(name, sizeof name, "control:0x%08lx", request);
  return step(name, [&] { return answer_control(request, argument); });
}

int close_descriptor(int fd)
{
  const std::lock_guard lock(guard);
  const auto at = table.find(fd);
  if (at == table.end()) {
    std::fprintf(stderr, "the agent closed descriptor %d, which is not its own\n", fd);
    std::abort();
  }
  std::erase_if(wires, [&](const auto& wire) { return wire.second == at->second; });
  if (at->second >= 0)
    close(at->second);
  table.erase(at);
  return close(fd);
}

int datagram_socket()
{
  return step("datagram_socket", [] { return keep("datagram_socket", open("/dev/null", O_RDWR | O_CLOEXEC)); });
}

// The same for what is asked of a device, which must be there.
template <typename Work>
int device_step(const std::string& name, const char* device, Work work)
{
  return step(name, [&] { return fake->devices.contains(device) ? work() : refused(ENODEV); });
}

int link_flags_get(int, const char* device, short* flags)
{
  return device_step("link_flags_get", device, [&] { return *flags = 0; });
}

int link_flags_set(int, const char* device, short)
{
  return device_step("link_flags_set", device, [] { return 0; });
}

int link_index(int, const char* device, int* index)
{
  return device_step("link_index", device, [&] {
    const auto at = std::ranges::find_if(indices, [&](const auto& known) { return known.second == device; });
    *index = at == indices.end() ? ++last_index : at->first;
    indices[*index] = device;
    return 0;
  });
}

int link_mtu(int, const char* device, int* mtu)
{
  return device_step("link_mtu", device, [&] { return answer(mtu, &fake->mtu, sizeof *mtu); });
}

int link_mac(int, const char*, unsigned char mac[6])
{
  const unsigned char address[6] = {0x02, 0x00, 0x5e, 0x10, 0x00, 0x01};
  return step("link_mac", [&] { return answer(mac, address, sizeof address); });
}

int packet_socket()
{
  return step("packet_socket", [] {
    int pair[2];
    return socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) < 0 ? -1
                                                                           : keep("packet_socket", pair[0], pair[1]);
  });
}

int set_nonblocking(int fd)
{
  return step("set_nonblocking", [&] { return fcntl(fd, F_SETFL, O_NONBLOCK); });
}

int bind_packet(int fd, int index)
{
  return step("bind_packet", [&] {
    wires[indices[index]] = table[fd];
    return 0;
  });
}

void enlarge_buffers(int, int) {}

receive_ring* ring_open(int)
{
  return nullptr;
}

// Each record is a step of its own.
send_refusals send_records(int fd, const kernel_record* records, unsigned count)
{
  send_refusals refused{};
  for (unsigned i = 0; i < count; ++i) {
    const std::lock_guard lock(guard);
    if (fails("send"))
      refused = {refused.count + 1, errno, records[i].length};
    else
      kernel_linux.send(fd, &records[i], 1);
  }
  return refused;
}

int queue_read(const packet_source&, packet_queue* queue)
{
  *queue = fake->queue;
  return 0;
}

const kernel_ops functions = {
    .open_control = open_control,
    .control = control,
    .close = close_descriptor,
    .datagram_socket = datagram_socket,
    .link_flags_get = link_flags_get,
    .link_flags_set = link_flags_set,
    .link_index = link_index,
    .link_mtu = link_mtu,
    .link_mac = link_mac,
    .packet_socket = packet_socket,
    .set_nonblocking = set_nonblocking,
    .bind_packet = bind_packet,
    .enlarge_buffers = enlarge_buffers,
    .ring_open = ring_open,
    .ring_close = kernel_linux.ring_close,
    .wait_readable = kernel_linux.wait_readable,
    .receive = kernel_linux.receive,
    .send = send_records,
    .queue_read = queue_read,
};

}  // namespace

fake_kernel::fake_kernel() : former_functions_(kernel), former_(fake)
{
  fake = this;
  calls.clear();
  kernel = &functions;
}

fake_kernel::~fake_kernel()
{
  kernel = former_functions_;
  fake = former_;
}

int fake_kernel::wire(const std::string& device) const
{
  const std::lock_guard lock(guard);
  const auto at = wires.find(device);
  return at == wires.end() ? -1 : at->second;
}

size_t fake_kernel::open_descriptors() const
{
  const std::lock_guard lock(guard);
  return table.size();
}

void fake_kernel::vanish(const std::string& device)
{
  const std::lock_guard lock(guard);
  device_forget(device);
}

void fake_kernel::fail_from_now(const std::map<std::string, int>& steps, const std::string& zero_step)
{
  const std::lock_guard lock(guard);
  failing = steps;
  at_zero = zero_step;
}

int fake_kernel::tried(const std::string& step) const
{
  const std::lock_guard lock(guard);
  return calls[step];
}

void wire_send(int wire, const std::vector<unsigned char>& record)
{
  if (send(wire, record.data(), record.size(), 0) != static_cast<ssize_t>(record.size()))
    std::perror("wire_send");
}

std::vector<unsigned char> wire_receive(int wire, int milliseconds)
{
  pollfd wait{wire, POLLIN, 0};
  if (poll(&wait, 1, milliseconds) != 1)
    return {};
  std::vector<unsigned char> record(65536 + 256);
  const ssize_t length = recv(wire, record.data(), record.size(), 0);
  record.resize(length > 0 ? static_cast<size_t>(length) : 0);
  return record;
}
