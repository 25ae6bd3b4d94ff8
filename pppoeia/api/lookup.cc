#include "pppoeia/api/lookup.h"

#include "pppoeia/api/operation.h"
#include "pppoeia/list.h"
#include "pppoeia/text.h"

#include <new>

namespace {

// Runs `body(port)` with the port found, or traces why there is none.
template <typename Body>
int with_port(const operation& self, const char* bridge, uint32_t id, Body body)
{
  pppoeia_bridge* record = bridge_find(bridge);
  if (!record)
    return self.no_entry();
  pppoeia_port* port = port_find(*record, id);
  if (!port)
    return self.no_port(id);
  return body(*port);
}

// Runs `body(entry)` with the port's entry for the VLAN found; -ENOENT without one.
template <typename Body>
int with_entry(const operation& self, const char* bridge, uint32_t id, uint16_t vlan, Body body)
{
  return with_port(self, bridge, id, [&](pppoeia_port& port) {
    pppoeia_port_vlan* entry = port_vlan_find(port, vlan);
    if (!entry)
      return -ENOENT;
    body(*entry);
    return 0;
  });
}

}  // namespace

int br_port_vsa_circuit_id_mode_get(const char* bridge, uint32_t port, uint32_t* mode)
{
  return with_port(operation{__func__}, bridge, port, [&](pppoeia_port& record) {
    *mode = record.vsa_circuit_id_mode;
    return 0;
  });
}

int br_port_pvc_get(const char* bridge, uint32_t port, uint32_t* vpi, uint32_t* vci)
{
  return with_port(operation{__func__}, bridge, port, [&](pppoeia_port& record) {
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
  return with_port(self, bridge, port, [&](pppoeia_port& record) {
    text_give(remote_id, record.remote_id);
    return self.result(0);
  });
}

int br_port_parent_get(const char* bridge, uint32_t port, uint32_t* parent)
{
  if (!parent)
    return 1;
  return with_port(operation{__func__}, bridge, port, [&](pppoeia_port& record) {
    *parent = record.parent_id;
    return 0;
  });
}

int br_circuit_id_mode_port_vlan_get(const char* bridge, uint32_t port, uint16_t vlan, uint32_t* mode)
{
  return with_entry(operation{__func__}, bridge, port, vlan,
                    [&](pppoeia_port_vlan& entry) { *mode = static_cast<uint32_t>(entry.cid_mode); });
}

int br_circuit_id_format_port_vlan_get(const char* bridge, uint32_t port, uint16_t vlan, char* format)
{
  return with_entry(operation{__func__}, bridge, port, vlan,
                    [&](pppoeia_port_vlan& entry) { text_give(format, entry.cid_format); });
}

int br_remote_id_format_port_vlan_get(const char* bridge, uint32_t port, uint16_t vlan, char* format)
{
  return with_entry(operation{__func__}, bridge, port, vlan,
                    [&](pppoeia_port_vlan& entry) { text_give(format, entry.rid_format); });
}

int br_port_vlan_add(const char* bridge, uint32_t port, uint16_t vlan)
{
  const operation self{__func__};
  return with_port(self, bridge, port, [&](pppoeia_port& record) {
    if (list_find(record.port_vlans, vlan))
      return 0;
    auto* entry = new (std::nothrow) pppoeia_port_vlan{};
    if (!entry)
      return self.no_memory();
    entry->vlan_id = vlan;
    entry->cid_mode = -1;
    if (!list_link(record.port_vlans, entry)) {
      delete entry;
      return self.refused("pppoeia_link_vlan_to_port error", -EIO);
    }
    return 0;
  });
}

int br_port_vlan_del(const char* bridge, uint32_t port, uint16_t vlan)
{
  return with_port(operation{__func__}, bridge, port, [&](pppoeia_port& record) {
    if (pppoeia_port_vlan* entry = list_find(record.port_vlans, vlan)) {
      list_unlink(record.port_vlans, entry);
      delete entry;
    }
    return 0;
  });
}
