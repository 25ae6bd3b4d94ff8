// Bridge instances: the agent's presence on one bridge of the kernel module `kvbridge`. Adding one opens the bridge's
// control file, has a pseudo device made, diverts the bridge's discovery frames to it, opens a packet socket there
// and starts a worker; deleting one undoes all of this. Both run on the management thread and take no lock: nobody
// else walks the list of bridges, and a worker knows its own bridge only.
//
// Descriptors live as long as their number may be in use: deletion sets `stop`, waits for the worker, and only then
// closes what the worker was reading. A number that another thread was handed meanwhile is never read or closed.
#include "pppoeia/pppoeia.h"

#include "platform/kvbridge/control.h"
#include "platform/ncfm/ncfm.h"
#include "pppoeia/agent/worker.h"
#include "pppoeia/kernel/devices.h"
#include "pppoeia/kernel/frame_buffers.h"
#include "pppoeia/kernel/kernel.h"
#include "pppoeia/list.h"
#include "pppoeia/log.h"
#include "pppoeia/operations/operation.h"
#include "pppoeia/status/bridge_status.h"
#include "pppoeia/text.h"

#include <cstdlib>
#include <new>

namespace {

void log_frame_adjust()
{
  pppoeia_log(log_error, "Frame adjust is %u bytes.", pppoeia_frame_adjust.load());
  if (pppoeia_frame_adjust == 0) {
    pppoeia_frame_adjust = 106;
    pppoeia_log(log_error, "Frame adjust is %u bytes.", pppoeia_frame_adjust.load());
  }
  pppoeia_log(log_info, "Frame adjust is %u bytes.", pppoeia_frame_adjust.load());
}

// One zero-filled block with room for a port more than asked for; null without memory.
pppoeia_bridge* record_allocate(uint32_t ports, size_t& size)
{
  size = bridge_record_size(ports);
  if (ports > port_count_max)
    return nullptr;
  void* block = std::calloc(1, size);
  return block ? new (block) pppoeia_bridge{} : nullptr;
}

// Frees the record and everything it owns in memory. Safe on a half-made record.
void record_free(pppoeia_bridge* bridge)
{
  pthread_mutex_destroy(&bridge->mutex);
  bridge_statuses::close(bridge->status);
  for (uint32_t slot = 0; slot <= bridge->ports; ++slot)
    list_free(bridge->port[slot].port_vlans);
  list_free(bridge->vlans);
  std::free(bridge->frame_buffer);
  std::free(bridge);
}

int filter_attach(const pppoeia_bridge& bridge)
{
  const int rc = bridge_filter_attach(bridge.ctl_fd, bridge.dev_name);
  if (rc < 0)
    pppoeia_log(log_critical, "<%s> Cannot attach filter to '%s' (rv=%d, errno=%d).", bridge.name, bridge.dev_name, rc,
                errno);
  return rc < 0 ? rc : 0;
}

int socket_bind(const pppoeia_bridge& bridge)
{
  int index = 0;
  if (kernel->link_index(bridge.sock, bridge.dev_name, &index) < 0) {
    pppoeia_log(log_critical, "<%s> Cannot find device '%s' index.", bridge.name, bridge.dev_name);
    return -ENODEV;
  }
  if (const int rc = kernel->set_nonblocking(bridge.sock); rc < 0) {
    pppoeia_log(log_critical, "<%s> Cannot set socket to non-blocking mode.", bridge.name);
    return rc;
  }
  if (const int rc = kernel->bind_packet(bridge.sock, index); rc < 0) {
    pppoeia_log(log_critical, "<%s> Cannot bind socket.", bridge.name);
    return rc;
  }
  return 0;
}

int socket_open(pppoeia_bridge& bridge)
{
  // A storm's first instant: ten thousand lines of a few hundred bytes each wait here while the worker starts.
  constexpr int burst_bytes = 16 * 1024 * 1024;
  bridge.sock = kernel->packet_socket();
  if (bridge.sock < 0) {
    pppoeia_log(log_critical, "<%s> Cannot create socket (%d).", bridge.name, errno);
    return -EMFILE;
  }
  kernel->enlarge_buffers(bridge.sock, burst_bytes);
  if (const int rc = socket_bind(bridge))
    return rc;
  // Behind the bind: what other devices sent to the socket before goes with the queue that the ring replaces.
  bridge.ring = kernel->ring_open(bridge.sock);
  return 0;
}

// Closes the packet socket, if it was opened, and its ring.
void socket_close(const pppoeia_bridge& bridge)
{
  kernel->ring_close(bridge.ring);
  if (bridge.sock != -1)
    kernel->close(bridge.sock);
}

void mtu_read(pppoeia_bridge& bridge)
{
  constexpr int mtu_default = 1500;
  int mtu = 0;
  if (kernel->link_mtu(bridge.sock, bridge.dev_name, &mtu) < 0 || mtu <= 0) {
    mtu = mtu_default;
    pppoeia_log(log_warning, "<%s> Unable to get socket MTU, defaulting to %d.", bridge.name, mtu);
  }
  bridge.mtu = mtu;
}

int buffer_allocate(pppoeia_bridge& bridge)
{
  bridge.buffer_size = static_cast<uint32_t>(bridge.mtu) + pppoeia_frame_adjust;
  bridge.frame_buffer = frame_buffers_new(bridge.buffer_size);
  if (!bridge.frame_buffer)
    pppoeia_log(log_critical, "<%s> Unable to allocate frame buffer.", bridge.name);
  return bridge.frame_buffer ? 0 : -ENOMEM;
}

// What the record does not bring along.
void defaults_fill(pppoeia_bridge& bridge, uint16_t stag_ethertype)
{
  ncfmBoardPos board{};
  bridge.stag_ethertype = stag_ethertype;
  bridge.port_count = bridge.ports;
  bridge.board_pos = ncfmGetMyBoardPos(&board) == 0 ? board.position : 0;
  bridge.max_pdu = static_cast<uint32_t>(bridge.mtu);
}

// Starts the worker before the record is on the list, so that a record that is given up is never found there.
int worker_start(pppoeia_bridge& bridge)
{
  const int rc = worker_thread_start(bridge);
  if (rc != 0) {
    pppoeia_log(log_critical, "<%s> Cannot start internal worker thread.", bridge.name);
    return rc;
  }
  pppoeia_state* state = pppoeia_globals.load();
  bridge.next = state->bridges;
  state->bridges = &bridge;
  return 0;
}

// All of a record beside its memory: device, filter, socket, buffer, worker. 0, or the failed step's value.
int instance_start(pppoeia_bridge& bridge, uint16_t stag_ethertype)
{
  if (const int rc = pppoeia_pseudo_dev_add(bridge.name, bridge.dev_name))
    return rc;
  if (const int rc = filter_attach(bridge))
    return rc;
  if (const int rc = socket_open(bridge))
    return rc;
  mtu_read(bridge);
  if (const int rc = buffer_allocate(bridge))
    return rc;
  defaults_fill(bridge, stag_ethertype);
  bridge.status = bridge_statuses::open(bridge.name, bridge.ports);
  return worker_start(bridge);
}

void record_begin(pppoeia_bridge& bridge, const char* name, int ctl_fd, uint32_t ports)
{
  pthread_mutex_init(&bridge.mutex, nullptr);
  bridge.sock = -1;
  bridge.ctl_fd = ctl_fd;
  bridge.ports = ports;
  text_copy(bridge.name, name);
  text_copy(bridge.dev_name, pseudo_device_name(bridge.name).c_str());
  for (uint32_t slot = 0; slot < ports; ++slot)
    std::memset(&bridge.port[slot].vlan_info, 0xff, sizeof bridge.port[slot].vlan_info);
}

// Gives a half-made instance up.
int give_up(const operation& self, pppoeia_bridge* bridge, int rc)
{
  const int ctl_fd = bridge->ctl_fd;
  pppoeia_pseudo_dev_del(bridge->name, bridge->dev_name);
  socket_close(*bridge);
  record_free(bridge);
  kernel->close(ctl_fd);
  return self.result(rc);
}

// What stands in the way of a new bridge of that name: 0 or the refusal, logged.
int name_check(const char* name)
{
  if (!pppoeia_globals.load()) {
    pppoeia_log(log_critical, "Not initialized.");
    return -ENXIO;
  }
  if (text_longer_than(name, bridge_name_max)) {
    pppoeia_log(log_critical, "Max bridge name length can be %d.", static_cast<int>(bridge_name_max));
    return -EINVAL;
  }
  if (bridge_find(name)) {
    pppoeia_log(log_critical, "<%s> Bridge already exists.", name);
    return -ENODEV;
  }
  return 0;
}

// The kernel bridge's control file, open, and its S-Tag EtherType; or the refusal, logged.
int kernel_bridge_open(const char* name, uint16_t& stag_ethertype)
{
  const int fd = bridge_control_open(name);
  if (fd < 0) {
    pppoeia_log(log_critical, "<%s> Cannot open bridge.", name);
    return -EMFILE;
  }
  kvbridge_info info{};
  if (kernel->control(fd, kvbridge_info_get, &info) < 0) {
    pppoeia_log(log_critical, "<%s> Unable to get bridge information.", name);
    kernel->close(fd);
    return -1;
  }
  stag_ethertype = info.stag_ethertype;
  return fd;
}

void list_take_off(pppoeia_bridge* bridge)
{
  pppoeia_bridge** link = &pppoeia_globals.load()->bridges;
  while (*link != bridge)
    link = &(*link)->next;
  *link = bridge->next;
}

}  // namespace

int pppoeia_bridge_add(const char* bridge, uint32_t ports)
{
  const operation self{__func__};
  self.entry(bridge);
  log_frame_adjust();
  if (const int rc = name_check(bridge))
    return self.result(rc);
  uint16_t stag_ethertype = 0;
  const int ctl_fd = kernel_bridge_open(bridge, stag_ethertype);
  if (ctl_fd < 0)
    return self.result(ctl_fd);
  size_t size = 0;
  pppoeia_bridge* record = record_allocate(ports, size);
  if (!record) {
    pppoeia_log(log_critical, "<%s> Cannot allocate memory (%d bytes).", bridge, static_cast<int>(size));
    kernel->close(ctl_fd);
    return self.result(-ENOMEM);
  }
  record_begin(*record, bridge, ctl_fd, ports);
  if (const int rc = instance_start(*record, stag_ethertype))
    return give_up(self, record, rc);
  pppoeia_log(log_info, "<%s> Bridge added (S-Tag EtherType=0x%04x, ports=%d, MTU=%d, buffer=%d).", record->name,
              record->stag_ethertype, static_cast<int>(record->port_count), record->mtu,
              static_cast<int>(record->buffer_size));
  return self.result(0);
}

int pppoeia_bridge_del(const char* bridge)
{
  const operation self{__func__};
  self.entry(bridge);
  if (!pppoeia_globals.load()) {
    pppoeia_log(log_warning, "Not initialized.");
    return self.refused("-ENXIO", -ENXIO);
  }
  pppoeia_bridge* record = bridge_find(bridge);
  if (!record)
    return self.no_entry();
  char name[sizeof record->name];
  text_copy(name, record->name);
  record->stop = 1;
  list_take_off(record);
  if (worker_thread_join(*record) != 0)
    pppoeia_log(log_warning, "<%s> Unable to stop worker thread. Killing...", name);
  socket_close(*record);
  kernel->close(record->ctl_fd);
  pppoeia_pseudo_dev_del(name, record->dev_name);
  record_free(record);
  pppoeia_log(log_debug, "<%s> Bridge deleted.", name);
  return self.result(0);
}
