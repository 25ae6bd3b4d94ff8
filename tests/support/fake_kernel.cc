#include "tests/support/fake_kernel.h"

#include "pppoeia/kernel_control.h"

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

namespace {

struct opened {
  std::string what;  // path, "packet" or "datagram"
  int peer = -1;     // of a packet socket
};

// State behind the functions, which take no context. Guarded: the worker calls them too.
std::mutex guard;
fake_kernel* fake;
std::map<int, opened> table;
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

int keep(int fd, opened what)
{
  table[fd] = std::move(what);
  return fd;
}

bool path_exists(const std::string& path)
{
  if (path == kvmng_path || path == kvbridge_path)
    return true;
  for (const std::string& name : fake->bridges)
    if (path == "/proc/net/kvbridge/" + name + "/bridge")
      return true;
  return false;
}

int open_control(const char* path)
{
  const std::lock_guard lock(guard);
  if (fails(std::string("open:") + path))
    return -1;
  if (!path_exists(path)) {
    errno = ENOENT;
    return -1;
  }
  return keep(open("/dev/null", O_RDONLY | O_CLOEXEC), {path});
}

int answer(void* argument, const void* value, size_t size)
{
  std::memcpy(argument, value, size);
  return 0;
}

int device_create(const char* name)
{
  if (!fake->devices.insert(name).second) {
    errno = EEXIST;
    return -1;
  }
  return 0;
}

void device_forget(const std::string& name)
{
  fake->devices.erase(name);
  std::erase_if(indices, [&](const auto& index) { return index.second == name; });
}

int control(int, unsigned long request, void* argument)
{
  const std::lock_guard lock(guard);
  char step[32];
  std::snprintf(step, sizeof step, "control:0x%08lx", request);
  if (fails(step))
    return -1;
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
    errno = ENOTTY;
    return -1;
  }
}

int close_descriptor(int fd)
{
  const std::lock_guard lock(guard);
  const auto at = table.find(fd);
  if (at == table.end()) {
    std::fprintf(stderr, "the agent closed descriptor %d, which is not its own\n", fd);
    std::abort();
  }
  for (auto wire = wires.begin(); wire != wires.end();)
    wire = wire->second == at->second.peer ? wires.erase(wire) : std::next(wire);
  if (at->second.peer >= 0)
    close(at->second.peer);
  table.erase(at);
  return close(fd);
}

int datagram_socket()
{
  const std::lock_guard lock(guard);
  if (fails("datagram_socket"))
    return -1;
  return keep(open("/dev/null", O_RDWR | O_CLOEXEC), {"datagram"});
}

bool device_known(const char* device)
{
  if (fake->devices.contains(device))
    return true;
  errno = ENODEV;
  return false;
}

int link_flags_get(int, const char* device, short* flags)
{
  const std::lock_guard lock(guard);
  if (fails("link_flags_get") || !device_known(device))
    return -1;
  *flags = 0;
  return 0;
}

int link_flags_set(int, const char* device, short)
{
  const std::lock_guard lock(guard);
  return fails("link_flags_set") || !device_known(device) ? -1 : 0;
}

int link_index(int, const char* device, int* index)
{
  const std::lock_guard lock(guard);
  if (fails("link_index") || !device_known(device))
    return -1;
  const auto at = std::ranges::find_if(indices, [&](const auto& known) { return known.second == device; });
  *index = at == indices.end() ? ++last_index : at->first;
  indices[*index] = device;
  return 0;
}

int link_mtu(int, const char* device, int* mtu)
{
  const std::lock_guard lock(guard);
  if (fails("link_mtu") || !device_known(device))
    return -1;
  *mtu = fake->mtu;
  return 0;
}

int link_mac(int, const char*, unsigned char mac[6])
{
  const std::lock_guard lock(guard);
  if (fails("link_mac"))
    return -1;
  const unsigned char address[6] = {0x02, 0x00, 0x5e, 0x10, 0x00, 0x01};
  std::memcpy(mac, address, sizeof address);
  return 0;
}

int packet_socket()
{
  const std::lock_guard lock(guard);
  int pair[2];
  if (fails("packet_socket") || socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) < 0)
    return -1;
  return keep(pair[0], {"packet", pair[1]});
}

int set_nonblocking(int fd)
{
  const std::lock_guard lock(guard);
  return fails("set_nonblocking") ? -1 : fcntl(fd, F_SETFL, O_NONBLOCK);
}

int bind_packet(int fd, int index)
{
  const std::lock_guard lock(guard);
  if (fails("bind_packet"))
    return -1;
  wires[indices[index]] = table[fd].peer;
  return 0;
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

void fake_kernel::fail_from_now(const std::map<std::string, int>& steps)
{
  const std::lock_guard lock(guard);
  failing = steps;
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
