// Ports: their life, their side and trust, their counters.
#include "pppoeia/pppoeia.h"

#include "pppoeia/api/operation.h"
#include "pppoeia/list.h"
#include "pppoeia/text.h"

namespace {

bool counts_as_active(int32_t state)
{
  return state == 2 || state == 3;
}

// Everything else in the slot (trust, VLAN flags, counters, Circuit ID mode) stays as it was.
void slot_fill(pppoeia_port& slot, uint32_t id, const char* device, const char* port_name,
               const pppoeia_port_info& info)
{
  slot.port_id = id;
  text_copy(slot.dev_name, device);
  text_copy(slot.port_name, port_name);
  text_copy(slot.type, info.type, 10);
  slot.intf_descr[0] = '\0';
  slot.cpe_serial[0] = '\0';
  std::memset(slot.cpe_mac, 0, sizeof slot.cpe_mac);
  slot.location = info.location;
  slot.state = 0;
  slot.remote_id[0] = '\0';
  slot.vpi = -1;
  slot.vci = -1;
  slot.parent_id = info.parent_id;
  slot.port_info_extra = info.kind;
  list_free(slot.port_vlans);  // of a port that was removed from here
}

// 0, or -ENOSPC for an id that has no slot.
int slot_take(pppoeia_bridge& bridge, uint32_t id, const char* device, const char* port_name,
              const pppoeia_port_info& info)
{
  const bridge_lock lock(bridge);
  if (port_find(bridge, id))
    return 0;
  if (id > bridge.port_count)
    return -ENOSPC;
  slot_fill(bridge.port[id - 1], id, device, port_name, info);
  return 0;
}

}  // namespace

int pppoeia_port_add(const char* bridge, uint32_t port, const char* device, const char* port_name,
                     const pppoeia_port_info* info)
{
  const operation self{__func__};
  self.entry(bridge, port, device);
  pppoeia_bridge* record = bridge_find(bridge);
  if (!record) {
    pppoeia_log(log_error, "%s():%d return -ENOENT", self.name(), 3630);
    return -ENOENT;
  }
  if (port == 0) {
    pppoeia_log(log_error, "%s():%d return -ENOENT", self.name(), 3635);
    return -EINVAL;
  }
  if (const int rc = slot_take(*record, port, device, port_name, *info); rc < 0) {
    pppoeia_log(log_error, "<%s> Unable to add port '%s' (%d).", record->name, device, rc);
    return rc;
  }
  pppoeia_log(log_debug, "<%s> Port %d, %s added.", record->name, static_cast<int>(port), device);
  return self.result(0);
}

int pppoeia_port_del(const char* bridge, uint32_t port)
{
  const operation self{__func__};
  self.entry(bridge, port);
  return self.on_port(bridge, port, [&](pppoeia_bridge& owner, pppoeia_port& record) {
    record.dev_name[0] = '\0';
    pppoeia_log(log_debug, "<%s> Port %d removed.", owner.name, static_cast<int>(port));
    return outcome{0};
  });
}

int pppoeia_port_state_set(const char* bridge, uint32_t port, int32_t state)
{
  const operation self{__func__};
  self.entry(bridge, port, state);
  return self.on_port(bridge, port, [&](pppoeia_bridge& owner, pppoeia_port& record) {
    if (counts_as_active(record.state))
      --owner.active_ports;
    record.state = state;
    if (counts_as_active(record.state))
      ++owner.active_ports;
    pppoeia_log(log_debug, "<%s> Port %d state set to %d.", owner.name, static_cast<int>(port), state);
    return outcome{0};
  });
}

int pppoeia_port_state_set_all(const char* bridge, uint32_t state)
{
  const operation self{__func__};
  self.entry(bridge, state);
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    for (uint32_t slot = 0; slot < record.port_count; ++slot)
      record.port[slot].state = static_cast<int32_t>(state);
    return outcome{0};
  });
}

int pppoeia_port_state_get(const char* bridge, uint32_t port, uint32_t* state)
{
  const operation self{__func__};
  self.entry(bridge, port);
  return self.on_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port& record) {
    *state = static_cast<uint32_t>(record.state);
    return outcome{0};
  });
}

int pppoeia_port_trust_set(const char* bridge, uint32_t port, uint32_t trust)
{
  const operation self{__func__};
  self.entry(bridge, port, trust);
  return self.on_port(bridge, port, [&](pppoeia_bridge& owner, pppoeia_port& record) {
    record.trust = trust;
    pppoeia_log(log_debug, "<%s> Port %d type set to %d.", owner.name, static_cast<int>(port), static_cast<int>(trust));
    return outcome{0};
  });
}

int pppoeia_port_trust_set_all(const char* bridge, uint32_t trust)
{
  const operation self{__func__};
  self.entry(bridge, trust);
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    for (uint32_t slot = 0; slot < record.port_count; ++slot)
      record.port[slot].trust = trust;
    return outcome{0};
  });
}

int pppoeia_port_trust_get(const char* bridge, uint32_t port, uint32_t* trust)
{
  const operation self{__func__};
  self.entry(bridge, port);
  return self.on_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port& record) {
    *trust = record.trust;
    return outcome{0};
  });
}

// Traces 0 also where the port is refused.
int pppoeia_port_stats_get(const char* bridge, uint32_t port, pppoeia_stats* stats)
{
  const operation self{__func__};
  self.entry(bridge, port);
  const int rc = self.on_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port& record) {
    *stats = record.stats;
    return outcome{0};
  });
  if (rc == -ENODEV)
    self.result(0);
  return rc;
}

int pppoeia_port_stats_reset(const char* bridge, uint32_t port)
{
  const operation self{__func__};
  self.entry(bridge, port);
  return self.on_port(bridge, port, [](pppoeia_bridge&, pppoeia_port& record) {
    record.stats = {};
    return outcome{0};
  });
}
