// VLANs of a bridge: those that have names, and the set of those that are enabled, with each port's flags of them.
#include "pppoeia/pppoeia.h"

#include "pppoeia/list.h"
#include "pppoeia/operations/operation.h"
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
  list_link(bridge.vlans, record);
  return {0};
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
    if (text_longer_than(name, vlan_name_max))
      return outcome{self.no_space(), true};
    pppoeia_vlan* found = vlan_find(record, vlan);
    if (!found)
      return outcome{self.no_vlan(), true};
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

// --- The set of enabled VLANs --------------------------------------------------------------------------------------

namespace {

// Enabling reaches every port slot, present or not; disabling leaves the ports' flags as they are.
void vlan_enable(pppoeia_bridge& bridge, uint32_t vlan, bool enable)
{
  if (!enable) {
    bridge.vlan_enabled.clear(vlan);
    return;
  }
  bridge.vlan_enabled.set(vlan);
  for (uint32_t slot = 0; slot < bridge.ports; ++slot)
    bridge.port[slot].vlan_info.set(vlan);
}

}  // namespace

int pppoeia_bridge_vlan_set(const char* bridge, uint16_t vlan, uint32_t enable)
{
  const operation self{__func__};
  self.entry(bridge, vlan, enable);
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    vlan_enable(record, vlan, enable != 0);
    return outcome{0};
  });
}

int pppoeia_bridge_vlan_set_all(const char* bridge, uint32_t enable)
{
  constexpr uint32_t vlans = 512;  // the ids above stay as they are
  const operation self{__func__};
  self.entry(bridge, enable);
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    for (uint32_t vlan = 0; vlan < vlans; ++vlan)
      vlan_enable(record, vlan, enable != 0);
    return outcome{0};
  });
}

int pppoeia_bridge_vlan_get(const char* bridge, uint16_t vlan, uint32_t* enable)
{
  const operation self{__func__};
  self.entry(bridge, vlan);
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    *enable = record.vlan_enabled.test(vlan);
    return outcome{0};
  });
}

int pppoeia_port_vlan_info_set(const char* bridge, uint32_t port, uint16_t vlan, int32_t flag)
{
  const operation self{__func__};
  self.entry(bridge, port, vlan, flag);
  return self.on_port(bridge, port, [&](pppoeia_bridge& owner, pppoeia_port& record) {
    if (!owner.vlan_enabled.test(vlan))
      return outcome{self.refused("-EPERM", -EPERM), true};
    if (flag)
      record.vlan_info.set(vlan);
    else
      record.vlan_info.clear(vlan);
    return outcome{0};
  });
}

int pppoeia_port_vlan_info_get(const char* bridge, uint32_t port, uint16_t vlan, int32_t* flag)
{
  const operation self{__func__};
  self.entry(bridge, port, vlan);
  return self.on_port(bridge, port, [&](pppoeia_bridge& owner, pppoeia_port& record) {
    if (!owner.vlan_enabled.test(vlan))
      return outcome{-EPERM};
    *flag = record.vlan_info.test(vlan);
    return outcome{0};
  });
}
