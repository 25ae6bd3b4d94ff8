// What a port's identifiers are made of: names, remote id, Circuit ID mode, PVC, parent, CPE.
#include "pppoeia/pppoeia.h"

#include "pppoeia/api/lookup.h"
#include "pppoeia/api/operation.h"
#include "pppoeia/text.h"

namespace {

bool is_atm(const pppoeia_port& port)
{
  return std::strcmp(port.type, "atm") == 0;
}

// A text of the port record without a length check of its own: cut to its field.
template <size_t Size>
int text_set(const operation& self, const char* bridge, uint32_t port, char (pppoeia_port::*field)[Size],
             const char* text)
{
  self.entry(bridge, port, text);
  return self.on_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port& record) {
    text_copy(record.*field, text);
    return outcome{0};
  });
}

template <size_t Size>
int text_get(const operation& self, const char* bridge, uint32_t port, char (pppoeia_port::*field)[Size], char* text)
{
  self.entry(bridge, port);
  return self.on_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port& record) {
    text_give(text, record.*field);
    return outcome{0};
  });
}

}  // namespace

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

int pppoeia_port_remote_id_set(const char* bridge, uint32_t port, const char* remote_id)
{
  const operation self{__func__};
  self.entry(bridge, port, remote_id);
  return self.on_port(bridge, port, [&](pppoeia_bridge& owner, pppoeia_port& record) {
    if (text_longer_than(remote_id, sizeof record.remote_id - 1))
      return outcome{self.no_space(), true};
    text_copy(record.remote_id, remote_id);
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
    if (!is_atm(record))
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
  const operation self{__func__};
  self.entry(bridge, port, parent);
  return self.on_port(bridge, port, [&](pppoeia_bridge& owner, pppoeia_port& record) {
    record.parent_id = parent;
    pppoeia_log(log_debug, "<%s> Port %d parent_id updated to %d.", owner.name, static_cast<int>(port),
                static_cast<int>(parent));
    return outcome{0};
  });
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

int pppoeia_bridge_intf_descr_set(const char* bridge, uint32_t port, const char* description)
{
  return text_set(operation{__func__}, bridge, port, &pppoeia_port::intf_descr, description);
}

int pppoeia_bridge_intf_descr_get(const char* bridge, uint32_t port, char* description)
{
  return text_get(operation{__func__}, bridge, port, &pppoeia_port::intf_descr, description);
}

int pppoeia_bridge_cpe_serial_set(const char* bridge, uint32_t port, const char* serial)
{
  return text_set(operation{__func__}, bridge, port, &pppoeia_port::cpe_serial, serial);
}

int pppoeia_bridge_cpe_serial_get(const char* bridge, uint32_t port, char* serial)
{
  return text_get(operation{__func__}, bridge, port, &pppoeia_port::cpe_serial, serial);
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
