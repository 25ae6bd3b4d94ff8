// The way back to factory settings: the operations that a management system would call, in a fixed order.
#include "pppoeia/pppoeia.h"

#include "pppoeia/api/operation.h"

namespace {

struct side {
  int32_t state;
  uint32_t trust;
};

// Kinds 1 and 5 make a port a trusted server side. The choice sticks: ports after such a port get it too.
side side_of(const pppoeia_port& port, side former)
{
  return (port.port_info_extra & ~4u) == 1 ? side{3, 0} : former;
}

int port_defaults(const char* bridge, uint32_t port, side side)
{
  if (const int rc = pppoeia_port_state_set(bridge, port, side.state))
    return rc;
  if (const int rc = pppoeia_port_trust_set(bridge, port, side.trust))
    return rc;
  if (const int rc = pppoeia_port_remote_id_set(bridge, port, ""))
    return rc;
  if (const int rc = pppoeia_port_vsa_circuit_id_mode_set(bridge, port, 0))
    return rc;
  return clear_port_vlan(bridge, port);
}

int ports_defaults(const char* bridge, const pppoeia_bridge& record)
{
  side current{0, 1};
  for (uint32_t slot = 0; slot < record.port_count; ++slot) {
    const pppoeia_port& port = record.port[slot];
    if (port.port_id == 0)
      continue;
    current = side_of(port, current);
    if (const int rc = port_defaults(bridge, port.port_id, current))
      return rc;
  }
  return 0;
}

int bridge_defaults(const char* bridge)
{
  if (const int rc = pppoeia_bridge_state_set(bridge, 0))
    return rc;
  if (const int rc = pppoeia_bridge_chassis_id_set(bridge, 99))
    return rc;
  if (const int rc = pppoeia_bridge_vsa_mode_set(bridge, 1))
    return rc;
  if (const int rc = pppoeia_bridge_vsa_insert_circuit_id_set(bridge, 1))
    return rc;
  if (const int rc = pppoeia_bridge_vsa_insert_remote_id_set(bridge, 1))
    return rc;
  if (const int rc = pppoeia_bridge_vlan_set_all(bridge, 0))
    return rc;
  // A reset of one bridge resets logging for the whole process.
  pppoeia_log_level = static_cast<int32_t>(log_error);
  if (const int rc = pppoeia_bridge_vsa_circuit_id_cvlan_set(bridge, 0))
    return rc;
  if (const int rc = pppoeia_circuit_id_format_set(bridge, ""))
    return rc;
  if (const int rc = pppoeia_remote_id_format_set(bridge, "$PORT_REM_ID"))
    return rc;
  return clear_vlan(bridge);
}

}  // namespace

int pppoeia_apply_default_settings(const char* bridge)
{
  const operation self{__func__};
  self.entry(bridge);
  const pppoeia_bridge* record = bridge_find(bridge);
  if (!record)
    return self.no_entry();
  int rc = bridge_defaults(bridge);
  if (rc == 0)
    rc = ports_defaults(bridge, *record);
  return self.result(rc);
}
