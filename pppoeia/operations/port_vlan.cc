// Entries of one port and VLAN: adding, removing, reading in order.
#include "pppoeia/pppoeia.h"

#include "pppoeia/list.h"
#include "pppoeia/operations/lookup.h"
#include "pppoeia/operations/operation.h"
#include "pppoeia/text.h"

#include <new>

namespace {

// How many bytes of the caller's VLAN id word are written.
enum class id_width : size_t { half = 2, whole = 4 };

// Copies the entry, or answers -ENOENT for none.
outcome entry_give(const pppoeia_port_vlan* record, pppoeia_port_vlan_entry* entry, id_width width)
{
  if (!record)
    return {-ENOENT};
  const uint32_t vid = record->vlan_id;
  std::memcpy(&entry->vlan_id, &vid, static_cast<size_t>(width));
  entry->cid_mode = record->cid_mode;
  text_give(entry->cid_format, record->cid_format);
  text_give(entry->rid_format, record->rid_format);
  return {0};
}

int no_output(const operation& self)
{
  return self.refused("-ENXIO", -ENXIO);
}

}  // namespace

int pppoeia_port_vlan_add(const char* bridge, uint32_t port, uint16_t vlan)
{
  const operation self{__func__};
  self.entry(bridge, port, vlan);
  return self.on_port(bridge, port,
                      [&](pppoeia_bridge&, pppoeia_port&) { return outcome{br_port_vlan_add(bridge, port, vlan)}; });
}

int pppoeia_port_vlan_del(const char* bridge, uint32_t port, uint16_t vlan)
{
  const operation self{__func__};
  self.entry(bridge, port, vlan);
  return self.on_port(bridge, port,
                      [&](pppoeia_bridge&, pppoeia_port&) { return outcome{br_port_vlan_del(bridge, port, vlan)}; });
}

int pppoeia_port_vlan_get_first(const char* bridge, uint32_t port, pppoeia_port_vlan_entry* entry)
{
  const operation self{__func__};
  self.entry(bridge, port);
  if (!entry)
    return no_output(self);
  return self.on_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port& record) {
    return entry_give(record.port_vlans, entry, id_width::half);
  });
}

int pppoeia_port_vlan_get_next(const char* bridge, uint32_t port, uint16_t vlan, pppoeia_port_vlan_entry* entry)
{
  const operation self{__func__};
  self.entry(bridge, port, vlan);
  if (!entry)
    return no_output(self);
  return self.on_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port& record) {
    const pppoeia_port_vlan* found = port_vlan_find(record, vlan);
    return entry_give(found ? found->next : nullptr, entry, id_width::whole);
  });
}

int pppoeia_port_vlan_info_get(const char* bridge, uint32_t port, uint16_t vlan, pppoeia_port_vlan_entry* entry)
{
  const operation self{__func__};
  self.entry(bridge, port, vlan);
  if (!entry)
    return no_output(self);
  return self.on_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port& record) {
    return entry_give(port_vlan_find(record, vlan), entry, id_width::whole);
  });
}

int clear_port_vlan(const char* bridge, uint32_t port)
{
  const operation self{__func__};
  self.entry(bridge, port);
  return self.on_port(bridge, port, [](pppoeia_bridge&, pppoeia_port& record) {
    list_free(record.port_vlans);
    return outcome{0};
  });
}

int clear_port_vlan_all(const char* bridge)
{
  const operation self{__func__};
  self.entry(bridge);
  pppoeia_bridge* record = bridge_find(bridge);
  if (!record)
    return self.no_entry();
  int rc = 0;
  for (uint32_t slot = 0; slot < record->port_count && rc == 0; ++slot)
    if (const uint32_t id = record->port[slot].port_id; id != 0)
      rc = clear_port_vlan(bridge, id);
  return self.result(rc);
}

int br_port_vlan_add(const char* bridge, uint32_t port, uint16_t vlan)
{
  const operation self{__func__};
  return self.with_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port& record) {
    if (list_find(record.port_vlans, vlan))
      return 0;
    auto* entry = new (std::nothrow) pppoeia_port_vlan{};
    if (!entry)
      return self.no_memory();
    entry->vlan_id = vlan;
    list_link(record.port_vlans, entry);
    return 0;
  });
}

int br_port_vlan_del(const char* bridge, uint32_t port, uint16_t vlan)
{
  return operation{__func__}.with_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port& record) {
    if (pppoeia_port_vlan* entry = list_find(record.port_vlans, vlan)) {
      list_unlink(record.port_vlans, entry);
      delete entry;
    }
    return 0;
  });
}
