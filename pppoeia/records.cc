#include "pppoeia/records.h"

#include "pppoeia/list.h"

#include <cstring>

std::atomic<pppoeia_state*> pppoeia_globals{nullptr};
std::atomic<uint32_t> pppoeia_frame_adjust{0};

pppoeia_bridge* bridge_find(const char* name)
{
  const pppoeia_state* state = pppoeia_globals.load(std::memory_order_relaxed);
  if (!state)
    return nullptr;
  for (pppoeia_bridge* bridge = state->bridges; bridge; bridge = bridge->next)
    if (std::strcmp(bridge->name, name) == 0)
      return bridge;
  return nullptr;
}

pppoeia_port* port_find(pppoeia_bridge& bridge, uint32_t id)
{
  if (id == 0 || id >= bridge.port_count)
    return nullptr;
  pppoeia_port& port = bridge.port[id - 1];
  return port.dev_name[0] ? &port : nullptr;
}

const pppoeia_port* port_find(const pppoeia_bridge& bridge, uint32_t id)
{
  return port_find(const_cast<pppoeia_bridge&>(bridge), id);
}

pppoeia_port_vlan* port_vlan_find(const pppoeia_port& port, uint16_t vid)
{
  return list_find(port.port_vlans, vid);
}

pppoeia_vlan* vlan_find(const pppoeia_bridge& bridge, uint16_t vid)
{
  return list_find(bridge.vlans, vid);
}
