// The set of VLANs that are enabled on a bridge, and each port's flags of them.
#include "pppoeia/pppoeia.h"

#include "pppoeia/api/operation.h"

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
