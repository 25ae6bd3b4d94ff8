#include "fuzz/operations/operations_agent.h"

#include "base/caller.h"
#include "platform/kvbridge/control.h"
#include "pppoeia/customid/trace.h"
#include "pppoeia/identifiers/test_data.h"
#include "pppoeia/log.h"
#include "pppoeia/pppoeia.h"
#include "pppoeia/records.h"
#include "tests/customid/node_stub.h"
#include "tests/support/api_fixture.h"
#include "tests/support/syslog_capture.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sys/socket.h>
#include <thread>

// Reports go to memory, thousands a second; the way to a real terminal stands beside, for the paths that need it.
#define pppoeia_send_stream_to_tty send_to_real_tty
#include "pppoeia/tty.cc"
#undef pppoeia_send_stream_to_tty

namespace {
std::string console;
}

void pppoeia_send_stream_to_tty(const std::stringstream& text, const std::string& path)
{
  if (path == "/console" && current_asker() != asker::unknown)
    console += text.str();
  else
    send_to_real_tty(text, path);
}

namespace operations {
namespace {

// --- the kernel's functions, with ears -------------------------------------------------------------------------------

const kernel_ops* under;
const step* in_hand;  // null: nobody listens
std::thread::id listened_to;
std::vector<string> heard;
std::map<int, string> names;  // of open descriptors; of the listened thread alone

std::mutex guard;
std::condition_variable news;
struct socket_state {
  int taken = 0;  // records
  int served = -1;
  unsigned char* record = nullptr;
};
std::map<int, socket_state> sockets;  // by descriptor

// Whether it is to be done; otherwise errno says why not.
bool told(const string& what)
{
  if (std::this_thread::get_id() != listened_to || !in_hand)
    return true;
  heard.push_back(what);
  const auto at = in_hand->failing.find(what);
  if (at == in_hand->failing.end())
    return true;
  errno = at->second;
  return false;
}

string name_of(int fd)
{
  return std::this_thread::get_id() == listened_to ? names[fd] : "";
}

int named(int fd, const string& name)
{
  if (fd >= 0 && std::this_thread::get_id() == listened_to)
    names[fd] = name;
  return fd;
}

int control(int fd, unsigned long request, void* argument)
{
  char number[32];
  std::snprintf(number, sizeof number, " 0x%08lx", request);
  string what = "control " + name_of(fd) + number;
  const char* text = static_cast<const char*>(argument);
  if (request == kvmng_device_create || request == kvmng_device_delete)
    what += string(" ") + text;
  if (request == kvbridge_filter_attach)
    what += string(" ") + text + " " + (text + offsetof(kvbridge_filter, device));
  if (told(what))
    return under->control(fd, request, argument);
  if (errno == EEXIST) {
    under->control(fd, request, argument);
    errno = EEXIST;
  }
  return -1;
}

int close_named(int fd)
{
  told("close " + name_of(fd));
  const std::lock_guard lock(guard);
  sockets.erase(fd);
  return under->close(fd);
}

int wait_readable(const packet_source& source, int)
{
  {
    const std::lock_guard lock(guard);
    socket_state& state = sockets[source.fd];
    state.served = state.taken;
  }
  news.notify_all();
  return under->wait_readable(source, 1);
}

int receive(const packet_source& source, kernel_record* records, unsigned count)
{
  const int taken = under->receive(source, records, count);
  const std::lock_guard lock(guard);
  if (taken > 0) {
    sockets[source.fd].taken += taken;
    sockets[source.fd].record = records->data;
  }
  return taken;
}

// Waits until the worker of that socket has served so many records.
unsigned char* served_wait(int fd, int records)
{
  std::unique_lock lock(guard);
  if (!news.wait_for(lock, std::chrono::seconds(20), [&] { return sockets[fd].served >= records; })) {
    std::fprintf(stderr, "the worker does not serve\n");
    std::abort();
  }
  return sockets[fd].record;
}

int records_taken(int fd)
{
  const std::lock_guard lock(guard);
  return sockets[fd].taken;
}

const kernel_ops& listening_kernel(const kernel_ops* below)
{
  static kernel_ops ops;
  under = below;
  ops = *below;
  ops.open_control = [](const char* path) {
    return told(string("open ") + path) ? named(under->open_control(path), path) : -1;
  };
  ops.control = control;
  ops.close = close_named;
  ops.datagram_socket = [] {
    return told("datagram socket") ? named(under->datagram_socket(), "datagram socket") : -1;
  };
  ops.link_flags_get = [](int fd, const char* device, short* flags) {
    return told(string("flags of ") + device) ? under->link_flags_get(fd, device, flags) : -1;
  };
  ops.link_flags_set = [](int fd, const char* device, short flags) {
    return told(string("flags of ") + device + ": " + std::to_string(flags)) ? under->link_flags_set(fd, device, flags)
                                                                             : -1;
  };
  ops.link_index = [](int fd, const char* device, int* index) {
    return told(string("index of ") + device) ? under->link_index(fd, device, index) : -1;
  };
  ops.link_mtu = [](int fd, const char* device, int* mtu) {
    return told(string("mtu of ") + device) ? under->link_mtu(fd, device, mtu) : -1;
  };
  ops.link_mac = [](int fd, const char* device, unsigned char mac[6]) {
    return told(string("mac of ") + device) ? under->link_mac(fd, device, mac) : -1;
  };
  ops.packet_socket = [] { return told("packet socket") ? named(under->packet_socket(), "packet socket") : -1; };
  ops.set_nonblocking = [](int fd) { return told("nonblocking " + name_of(fd)) ? under->set_nonblocking(fd) : -1; };
  ops.bind_packet = [](int fd, int index) { return told("bind " + name_of(fd)) ? under->bind_packet(fd, index) : -1; };
  ops.wait_readable = wait_readable;
  ops.receive = receive;
  return ops;
}

// --- the log ---------------------------------------------------------------------------------------------------------

// A worker's first and last lines, which stand anywhere in the log.
bool of_worker(const string& text)
{
  return text.ends_with("> Worker started.") || text.ends_with("> Finished.") || text.find("riority") != string::npos;
}

void log_take(outcome& seen)
{
  for (const syslog_line& line : syslog_take()) {
    const string prefix = "[PPPoE] ", memory = "Cannot allocate memory (";
    string text = line.text.starts_with(prefix) ? line.text.substr(prefix.size()) : line.text;
    if (const size_t at = text.find(memory); at != string::npos)  // how many is the agent's own affair
      text.replace(at + memory.size(), text.find(' ', at + memory.size()) - at - memory.size(), "?");
    if (!of_worker(text))
      seen.log.push_back({line.priority, text});
    else if (text.find("riority") == string::npos)
      seen.workers.push_back(text);
  }
}

}  // namespace

real_agent::real_agent(const node& machine)
    : open_before_(machine_.open_descriptors()), terminal_(machine.terminal), former_(kernel)
{
  ::node() = {};  // takes the kernel's place, too
  ::node().board.reset();
  if (machine.board)
    ::node().board = static_cast<uint8_t>(*machine.board);
  for (const auto& [device, address] : machine.ipv4)
    for (size_t i = 0; i < 4; ++i)
      ::node().ipv4[device][i] = static_cast<uint8_t>(address[i]);
  if (machine.ipv6)
    ::node().ipv6 = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  machine_.bridges = machine.bridges;
  machine_.kvmng_version = machine.kvmng;
  machine_.kvbridge_version = machine.kvbridge;
  machine_.stag_ethertype = static_cast<uint16_t>(machine.stag);
  machine_.mtu = machine.mtu;
  if (!machine.mac)
    machine_.failing["link_mac"] = EIO;
  listened_to = std::this_thread::get_id();
  kernel = &listening_kernel(former_);
  pppoeia_frame_adjust = 0;
  pppoeia_log_level = 6;
  pppoeia_debug_admin_state_set(0);
  customFormatTestData = {};
  customFormatTestDebug = false;
  syslog_take();
}

size_t real_agent::end()
{
  in_hand = nullptr;
  if (pppoeia_globals.load())
    pppoeia_fini();
  return machine_.open_descriptors() - open_before_;
}

real_agent::~real_agent()
{
  end();
  customFormatTestDebug = false;
  kernel = former_;
  syslog_take();
}

bool real_agent::has_bridge(const string& name) const
{
  return bridge_find(name.c_str());
}

outcome real_agent::run(const step& now)
{
  console.clear();
  heard.clear();
  where_ = 0;
  outcome seen = now.bridge.empty() ? call(now) : frame(now);
  log_take(seen);
  seen.terminal = console;
  if (std::filesystem::file_size(terminal_) > 0) {
    std::ifstream written(terminal_);
    seen.terminal.append(std::istreambuf_iterator<char>(written), {});
    std::filesystem::resize_file(terminal_, 0);
  }
  if (pppoeia_globals.load())
    for (const pppoeia_bridge* one = pppoeia_globals.load()->bridges; one; one = one->next)
      seen.bridges.push_back(one->name + string(" with active ports: ") + std::to_string(one->active_ports));
  return seen;
}

outcome real_agent::call(const step& now)
{
  auto* const before = pppoeia_globals.load();
  api_call call(static_cast<uint16_t>(now.id));
  call.arguments = now.arguments;
  const auto begun = std::chrono::steady_clock::now();
  in_hand = &now;
  if (now.anonymous) {
    const caller_scope nobody(nullptr);
    call.run();
  } else
    call.run();
  in_hand = nullptr;
  auto* const after = pppoeia_globals.load();
  if (now.id == 6 && call.status == 0 && call.result == 0)  // its worker tells of itself
    served_wait(after->bridges->sock, 0);
  outcome seen;
  log_take(seen);
  if (now.id == 0 && before && after != before) {  // bridges that nobody can reach any more would stay for ever
    pppoeia_globals = before;
    pppoeia_fini();
    pppoeia_globals = after;
    syslog_take();
  }
  seen.status = call.status;
  seen.has_result = call.has_result;
  seen.result = call.result;
  seen.arguments = call.arguments;
  seen.kernel = heard;
  const bool reports = now.id >= 70 && now.id <= 74;
  late_ = reports && std::chrono::steady_clock::now() - begun > std::chrono::milliseconds(500);
  if (late_)
    std::this_thread::sleep_for(std::chrono::seconds(11));
  return seen;
}

outcome real_agent::frame(const step& now)
{
  const pppoeia_bridge* const bridge = bridge_find(now.bridge.c_str());
  const int wire = machine_.wire(bridge->dev_name), before = records_taken(bridge->sock);
  wire_send(wire, now.record);
  where_ = reinterpret_cast<uintptr_t>(served_wait(bridge->sock, before + 1));
  outcome seen;
  bytes back(65536);
  const ssize_t length = recv(wire, back.data(), back.size(), MSG_DONTWAIT);
  back.resize(length > 0 ? static_cast<size_t>(length) : 0);
  seen.sent = back;
  return seen;
}

}  // namespace operations
