// Ports: their life, their settings that do more than be kept, their counters.
#include "pppoeia/list.h"
#include "pppoeia/operations/lookup.h"
#include "pppoeia/operations/operation.h"
#include "pppoeia/pppoeia.h"

namespace {

// Everything else in the slot (trust, VLAN flags, counters, Circuit ID mode) stays as it was.
void fill_slot(pppoeia_port& slot, uint32_t id, const char* device, const char* port_name,
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
int add_to_slot(pppoeia_bridge& bridge, uint32_t id, const char* device, const char* port_name,
                const pppoeia_port_info& info)
{
  const bridge_lock lock(bridge);
  if (port_find(bridge, id))
    return 0;
  if (id > bridge.port_count)
    return -ENOSPC;
  fill_slot(bridge.port[id - 1], id, device, port_name, info);
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
  if (const int rc = add_to_slot(*record, port, device, port_name, *info); rc < 0) {
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

int pppoeia_port_name_update(const char* bridge, uint32_t port, const char* port_name,
                             const pppoeia_name_update* update)
{
  const operation self{__func__};
  self.entry(bridge, port, port_name);
  return self.on_port(bridge, port, [&](pppoeia_bridge& owner, pppoeia_port& record) {
    text_copy(record.port_name, port_name);
    record.location = update->location;
    pppoeia_log(log_debug, "<%s> Port %d name updated to %s.", owner.name, static_cast<int>(port), record.port_name);
    return outcome{0};
  });
}

int pppoeia_port_state_set(const char* bridge, uint32_t port, int32_t state)
{
  const operation self{__func__};
  self.entry(bridge, port, state);
  return self.on_port(bridge, port, [&](pppoeia_bridge& owner, pppoeia_port& record) {
    if (is_network_side(record.state))
      --owner.active_ports;
    record.state = state;
    if (is_network_side(record.state))
      ++owner.active_ports;
    pppoeia_log(log_debug, "<%s> Port %d state set to %d.", owner.name, static_cast<int>(port), state);
    return outcome{0};
  });
}

int pppoeia_port_state_get(const char* bridge, uint32_t port, uint32_t* state)
{
  return number_get(operation{__func__}, bridge, port, &port_settings::state, state);
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

int pppoeia_port_remote_id_set(const char* bridge, uint32_t port, const char* remote_id)
{
  const operation self{__func__};
  self.entry(bridge, port, remote_id);
  return self.on_port(bridge, port, [&](pppoeia_bridge& owner, port_settings& record) {
    const outcome kept = text_store(self, record, &port_settings::remote_id, remote_id, too_long::no_space);
    if (kept.rc != 0)
      return kept;
    pppoeia_log(log_debug, "<%s> Port %d Agent ID set.", owner.name, static_cast<int>(port));
    return outcome{0};
  });
}

int pppoeia_port_remote_id_get(const char* bridge, uint32_t port, char* remote_id)
{
  const operation self{__func__};
  self.entry(bridge, port);
  return self.on_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port&) {
    return outcome{br_port_remote_id_get(bridge, port, remote_id)};
  });
}

int pppoeia_port_vsa_circuit_id_mode_set(const char* bridge, uint32_t port, uint32_t mode)
{
  const operation self{__func__};
  self.entry(bridge, port, mode);
  return self.on_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port& record) {
    record.vsa_circuit_id_mode = mode;
    return outcome{0};
  });
}

int pppoeia_port_vsa_circuit_id_mode_get(const char* bridge, uint32_t port, uint32_t* mode)
{
  const operation self{__func__};
  self.entry_port_query(bridge, port);
  return self.on_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port&) {
    return outcome{br_port_vsa_circuit_id_mode_get(bridge, port, mode)};
  });
}

int pppoeia_port_pvc_set(const char* bridge, uint32_t port, uint32_t vpi, uint32_t vci)
{
  const operation self{__func__};
  self.entry(bridge, port, vpi, vci);
  return self.on_port(bridge, port, [&](pppoeia_bridge& owner, pppoeia_port& record) {
    if (std::strcmp(record.type, "atm") != 0)
      return outcome{1};
    record.vpi = static_cast<int32_t>(vpi);
    record.vci = static_cast<int32_t>(vci);
    pppoeia_log(log_debug, "<%s> Port %d vpi/vci set to %d/%d.", owner.name, static_cast<int>(port), record.vpi,
                record.vci);
    return outcome{0};
  });
}

int pppoeia_port_pvc_get(const char* bridge, uint32_t port, uint32_t* vpi, uint32_t* vci)
{
  const operation self{__func__};
  self.entry_port_query(bridge, port);
  if (!vpi || !vci)
    return 1;
  return self.on_port(bridge, port,
                      [&](pppoeia_bridge&, pppoeia_port&) { return outcome{br_port_pvc_get(bridge, port, vpi, vci)}; });
}

int pppoeia_port_parent_set(const char* bridge, uint32_t port, uint32_t parent)
{
  return number_set(operation{__func__}, bridge, port, &port_settings::parent_id, parent, "parent_id updated to");
}

int pppoeia_port_parent_get(const char* bridge, uint32_t port, uint32_t* parent)
{
  const operation self{__func__};
  self.entry_port_query(bridge, port);
  if (!parent)
    return 1;
  return self.on_port(
      bridge, port, [&](pppoeia_bridge&, pppoeia_port&) { return outcome{br_port_parent_get(bridge, port, parent)}; });
}

int pppoeia_bridge_cpe_serial_get(const char* bridge, uint32_t port, uint8_t* mac)
{
  const operation self{__func__};
  self.entry(bridge, port);
  if (!mac)
    return self.invalid();
  return self.on_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port& record) {
    std::memcpy(mac, record.cpe_mac, sizeof record.cpe_mac);
    return outcome{0};
  });
}

int pppoeia_bridge_cpe_mac_set(const char* bridge, uint32_t port, uint64_t mac)
{
  const operation self{__func__};
  self.entry(bridge, port);
  return self.on_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port& record) {
    for (unsigned i = 0; i < sizeof record.cpe_mac; ++i)
      record.cpe_mac[i] = static_cast<uint8_t>(mac >> (8 * i));
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

int br_port_vsa_circuit_id_mode_get(const char* bridge, uint32_t port, uint32_t* mode)
{
  return operation{__func__}.with_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port& record) {
    *mode = record.vsa_circuit_id_mode;
    return 0;
  });
}

int br_port_pvc_get(const char* bridge, uint32_t port, uint32_t* vpi, uint32_t* vci)
{
  return operation{__func__}.with_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port& record) {
    if (std::strcmp(record.type, "atm") != 0)
      return 1;
    *vpi = static_cast<uint32_t>(record.vpi);
    *vci = static_cast<uint32_t>(record.vci);
    return 0;
  });
}

int br_port_remote_id_get(const char* bridge, uint32_t port, char* remote_id)
{
  const operation self{__func__};
  self.entry(bridge, port);
  return self.with_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port& record) {
    text_give(remote_id, record.remote_id);
    return self.result(0);
  });
}

int br_port_parent_get(const char* bridge, uint32_t port, uint32_t* parent)
{
  if (!parent)
    return 1;
  return operation{__func__}.with_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port& record) {
    *parent = record.parent_id;
    return 0;
  });
}
