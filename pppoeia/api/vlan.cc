// Named VLANs of a bridge.
#include "pppoeia/pppoeia.h"

#include "pppoeia/api/operation.h"
#include "pppoeia/list.h"
#include "pppoeia/text.h"

#include <new>

namespace {

outcome vlan_link(const operation& self, pppoeia_bridge& bridge, uint16_t vlan)
{
  if (vlan_find(bridge, vlan))
    return {0};
  auto* record = new (std::nothrow) pppoeia_vlan{};
  if (!record)
    return {self.no_memory(), true};
  record->vlan_id = vlan;
  if (list_link(bridge.vlans, record))
    return {0};
  delete record;
  return {self.refused("pppoeia_link error", -EIO), true};
}

}  // namespace

int pppoeia_vlan_add(const char* bridge, uint16_t vlan)
{
  const operation self{__func__};
  self.entry(bridge, vlan);
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) { return vlan_link(self, record, vlan); });
}

int pppoeia_vlan_del(const char* bridge, uint16_t vlan)
{
  const operation self{__func__};
  self.entry(bridge, vlan);
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    if (pppoeia_vlan* found = vlan_find(record, vlan)) {
      list_unlink(record.vlans, found);
      delete found;
    }
    return outcome{0};
  });
}

int pppoeia_vlan_name_set(const char* bridge, uint16_t vlan, const char* name)
{
  const operation self{__func__};
  self.entry(bridge, vlan, name);
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    if (text_longer_than(name, sizeof pppoeia_vlan::name - 1))
      return outcome{self.no_space(), true};
    pppoeia_vlan* found = vlan_find(record, vlan);
    if (!found)
      return outcome{self.no_port(0), true};  // a missing VLAN is reported as a missing port 0
    text_copy(found->name, name);
    pppoeia_log(log_debug, "<%s> VLAN %d name set to '%s'.", record.name, vlan, found->name);
    return outcome{0};
  });
}

int clear_vlan(const char* bridge)
{
  const operation self{__func__};
  self.entry(bridge);
  return self.on_bridge(bridge, [](pppoeia_bridge& record) {
    list_free(record.vlans);
    return outcome{0};
  });
}
