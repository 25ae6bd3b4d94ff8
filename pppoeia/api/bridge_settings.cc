// Settings of a bridge as a whole.
#include "pppoeia/pppoeia.h"

#include "pppoeia/api/operation.h"
#include "pppoeia/text.h"

namespace {

// A number of the bridge record, taken or given as it is.
template <typename Field, typename Number>
int number_set(const operation& self, const char* bridge, Field pppoeia_bridge::*field, Number value)
{
  self.entry(bridge, value);
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    record.*field = static_cast<Field>(value);
    return outcome{0};
  });
}

template <typename Field, typename Number>
int number_get(const operation& self, const char* bridge, Field pppoeia_bridge::*field, Number* value)
{
  self.entry(bridge);
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    *value = static_cast<Number>(record.*field);
    return outcome{0};
  });
}

// A text of the bridge record; the length is tested under the lock, as it comes after the look-up either way.
template <size_t Size>
int text_set(const operation& self, const char* bridge, char (pppoeia_bridge::*field)[Size], const char* text)
{
  self.entry(bridge, text);
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    if (text_longer_than(text, Size - 1))
      return outcome{self.no_space(), true};
    text_copy(record.*field, text);
    return outcome{0};
  });
}

template <size_t Size>
int text_get(const operation& self, const char* bridge, char (pppoeia_bridge::*field)[Size], char* text)
{
  self.entry(bridge);
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    text_give(text, record.*field);
    return outcome{0};
  });
}

}  // namespace

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
  return number_get(self, bridge, &pppoeia_bridge::max_pdu, max_pdu);
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

int pppoeia_bridge_vendor_set(const char* bridge, const char* vendor)
{
  const operation self{__func__};
  self.entry(bridge, vendor);
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    if (text_longer_than(vendor, sizeof record.vendor - 1))
      return outcome{self.no_memory(), true};
    text_copy(record.vendor, vendor);
    return outcome{0};
  });
}

int pppoeia_bridge_vendor_get(const char* bridge, char* vendor)
{
  return text_get(operation{__func__}, bridge, &pppoeia_bridge::vendor, vendor);
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
  self.entry(bridge, mode == 0 ? "keep" : "remove");
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    record.vsa_mode = static_cast<uint32_t>(mode);
    return outcome{0};
  });
}

int pppoeia_bridge_vsa_mode_get(const char* bridge, int32_t* mode)
{
  return number_get(operation{__func__}, bridge, &pppoeia_bridge::vsa_mode, mode);
}

int pppoeia_bridge_vsa_insert_circuit_id_set(const char* bridge, uint32_t insert)
{
  return number_set(operation{__func__}, bridge, &pppoeia_bridge::vsa_insert_circuit_id, insert);
}

int pppoeia_bridge_vsa_insert_circuit_id_get(const char* bridge, uint32_t* insert)
{
  return number_get(operation{__func__}, bridge, &pppoeia_bridge::vsa_insert_circuit_id, insert);
}

int pppoeia_bridge_vsa_insert_remote_id_set(const char* bridge, uint32_t insert)
{
  return number_set(operation{__func__}, bridge, &pppoeia_bridge::vsa_insert_remote_id, insert);
}

int pppoeia_bridge_vsa_insert_remote_id_get(const char* bridge, uint32_t* insert)
{
  return number_get(operation{__func__}, bridge, &pppoeia_bridge::vsa_insert_remote_id, insert);
}

int pppoeia_bridge_vsa_circuit_id_cvlan_set(const char* bridge, uint32_t cvlan)
{
  return number_set(operation{__func__}, bridge, &pppoeia_bridge::vsa_circuit_id_cvlan, cvlan);
}

int pppoeia_bridge_vsa_circuit_id_cvlan_get(const char* bridge, uint32_t* cvlan)
{
  return number_get(operation{__func__}, bridge, &pppoeia_bridge::vsa_circuit_id_cvlan, cvlan);
}

int pppoeia_bridge_shelf_id_set(const char* bridge, const char* shelf_id)
{
  return text_set(operation{__func__}, bridge, &pppoeia_bridge::shelf_id, shelf_id);
}

int pppoeia_bridge_shelf_id_get(const char* bridge, char* shelf_id)
{
  return text_get(operation{__func__}, bridge, &pppoeia_bridge::shelf_id, shelf_id);
}

int pppoeia_bridge_chassis_id_set(const char* bridge, uint32_t chassis_id)
{
  return number_set(operation{__func__}, bridge, &pppoeia_bridge::chassis_id, chassis_id);
}

int pppoeia_bridge_chassis_id_get(const char* bridge, uint32_t* chassis_id)
{
  return number_get(operation{__func__}, bridge, &pppoeia_bridge::chassis_id, chassis_id);
}

int pppoeia_bridge_contact_set(const char* bridge, const char* contact)
{
  return text_set(operation{__func__}, bridge, &pppoeia_bridge::contact, contact);
}

int pppoeia_bridge_contact_get(const char* bridge, char* contact)
{
  return text_get(operation{__func__}, bridge, &pppoeia_bridge::contact, contact);
}

int pppoeia_bridge_location_set(const char* bridge, const char* location)
{
  return text_set(operation{__func__}, bridge, &pppoeia_bridge::location, location);
}

int pppoeia_bridge_location_get(const char* bridge, char* location)
{
  return text_get(operation{__func__}, bridge, &pppoeia_bridge::location, location);
}

int pppoeia_bridge_sysname_set(const char* bridge, const char* sysname)
{
  return text_set(operation{__func__}, bridge, &pppoeia_bridge::sysname, sysname);
}

int pppoeia_bridge_sysname_get(const char* bridge, char* sysname)
{
  return text_get(operation{__func__}, bridge, &pppoeia_bridge::sysname, sysname);
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
