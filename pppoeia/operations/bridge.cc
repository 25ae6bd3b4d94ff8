// What bridges have beside plain settings: those that do more than be kept, the counters, the way back to factory
// settings.
#include "pppoeia/operations/operation.h"
#include "pppoeia/pppoeia.h"

int pppoeia_bridge_max_pdu_set(const char* bridge, uint32_t max_pdu)
{
  const operation self{__func__};
  self.entry(bridge, max_pdu);
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    if (max_pdu > static_cast<uint32_t>(record.mtu))
      return outcome{-EINVAL};
    record.max_pdu = max_pdu;
    return outcome{0};
  });
}

int pppoeia_bridge_max_pdu_get(const char* bridge, uint32_t* max_pdu)
{
  const operation self{__func__};
  if (!max_pdu) {
    self.entry(bridge);
    return self.invalid();
  }
  return number_get(self, bridge, &bridge_settings::max_pdu, max_pdu);
}

int pppoeia_bridge_state_set(const char* bridge, uint32_t state)
{
  const operation self{__func__};
  self.entry(bridge, state);
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    record.disabled = state == 0;
    return outcome{0};
  });
}

int pppoeia_bridge_state_get(const char* bridge, uint32_t* state)
{
  const operation self{__func__};
  self.entry(bridge);
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    *state = record.disabled == 0;
    return outcome{0};
  });
}

int pppoeia_bridge_debug_set(const char* bridge, int32_t debug)
{
  const operation self{__func__};
  self.entry(bridge, debug);
  pppoeia_log_level = debug ? static_cast<int32_t>(log_debug) : -1;
  return self.result(0);
}

int pppoeia_bridge_debug_get(const char* bridge, int32_t* debug)
{
  const operation self{__func__};
  self.entry(bridge);
  *debug = pppoeia_log_level != -1;
  return self.result(0);
}

int pppoeia_bridge_vsa_mode_set(const char* bridge, int32_t mode)
{
  const operation self{__func__};
  self.entry(bridge, mode == vendor_tag_keep ? "keep" : "remove");
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    record.vsa_mode = static_cast<uint32_t>(mode);
    return outcome{0};
  });
}

int pppoeia_bridge_vsa_mode_get(const char* bridge, int32_t* mode)
{
  return number_get(operation{__func__}, bridge, &bridge_settings::vsa_mode, mode);
}

namespace {

using format_field = bridge_text<bridge_format_max + 1>;

// `which` is "CID" or "RID". The result trace shows the text instead of the code.
int format_set(const operation& self, const char* bridge, format_field field, const char* which, const char* format)
{
  self.entry(bridge, format);
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    if (const outcome kept = text_store<bridge_settings>(self, record, field, format, too_long::no_space); kept.rc != 0)
      return kept;
    pppoeia_log(log_debug, "<%s> Custom %s format set.", record.name, which);
    return outcome{self.done(format), true};
  });
}

}  // namespace

int pppoeia_circuit_id_format_set(const char* bridge, const char* format)
{
  return format_set(operation{__func__}, bridge, &bridge_settings::pppoeia_cid_format, "CID", format);
}

int pppoeia_circuit_id_format_get(const char* bridge, char* format)
{
  return text_get(operation{__func__}, bridge, &bridge_settings::pppoeia_cid_format, format);
}

int pppoeia_remote_id_format_set(const char* bridge, const char* format)
{
  return format_set(operation{__func__}, bridge, &bridge_settings::pppoeia_rid_format, "RID", format);
}

int pppoeia_remote_id_format_get(const char* bridge, char* format)
{
  return text_get(operation{__func__}, bridge, &bridge_settings::pppoeia_rid_format, format);
}

int pppoeia_bridge_stats_get(const char* bridge, pppoeia_stats* stats)
{
  const operation self{__func__};
  self.entry(bridge);
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    *stats = record.stats;
    return outcome{0};
  });
}

int pppoeia_bridge_stats_reset(const char* bridge)
{
  const operation self{__func__};
  self.entry(bridge);
  return self.on_bridge(bridge, [](pppoeia_bridge& record) {
    record.stats = {};
    return outcome{0};
  });
}

// --- Back to factory settings: the operations that a management system would call, in a fixed order ------------------

namespace {

struct side {
  int32_t state;
  uint32_t trust;
};

// An uplink is a trusted server side. The choice sticks: ports after such a port get it too.
side side_of(const pppoeia_port& port, side former)
{
  return port_is_uplink(port) ? side{port_side_any, port_trusted} : former;
}

// -ENODEV for one that was removed: its id stays in the slot.
int port_defaults(const char* bridge, uint32_t port, side side)
{
  if (const int rc = pppoeia_port_state_set(bridge, port, side.state))
    return rc;
  pppoeia_port_trust_set(bridge, port, side.trust);
  pppoeia_port_remote_id_set(bridge, port, port_factory.remote_id);
  pppoeia_port_vsa_circuit_id_mode_set(bridge, port, cid_ethernet);
  return clear_port_vlan(bridge, port);
}

int ports_defaults(const char* bridge, const pppoeia_bridge& record)
{
  side current{port_side_none, port_untrusted};
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

// Of a bridge that is there: none of these is refused.
void bridge_defaults(const char* bridge)
{
  pppoeia_bridge_state_set(bridge, 0);
  pppoeia_bridge_chassis_id_set(bridge, bridge_factory.chassis_id);
  pppoeia_bridge_vsa_mode_set(bridge, bridge_factory.vsa_mode);
  pppoeia_bridge_vsa_insert_circuit_id_set(bridge, bridge_factory.vsa_insert_circuit_id);
  pppoeia_bridge_vsa_insert_remote_id_set(bridge, bridge_factory.vsa_insert_remote_id);
  pppoeia_bridge_vlan_set_all(bridge, 0);
  // A reset of one bridge resets logging for the whole process.
  pppoeia_log_level = static_cast<int32_t>(log_error);
  pppoeia_bridge_vsa_circuit_id_cvlan_set(bridge, bridge_factory.vsa_circuit_id_cvlan);
  pppoeia_circuit_id_format_set(bridge, bridge_factory.pppoeia_cid_format);
  pppoeia_remote_id_format_set(bridge, "$PORT_REM_ID");
  clear_vlan(bridge);
}

}  // namespace

int pppoeia_apply_default_settings(const char* bridge)
{
  const operation self{__func__};
  self.entry(bridge);
  const pppoeia_bridge* record = bridge_find(bridge);
  if (!record)
    return self.no_entry();
  bridge_defaults(bridge);
  return self.result(ports_defaults(bridge, *record));
}
