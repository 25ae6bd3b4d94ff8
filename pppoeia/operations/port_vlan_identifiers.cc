// Identifier settings of one port and VLAN. An entry exists only while it carries something: the first setting makes
// it, taking the last one away removes it.
#include "pppoeia/pppoeia.h"

#include "pppoeia/identifiers/identifiers.h"
#include "pppoeia/identifiers/macro_values.h"
#include "pppoeia/operations/lookup.h"
#include "pppoeia/operations/operation.h"
#include "pppoeia/text.h"

namespace {

using format_field = char (pppoeia_port_vlan::*)[bridge_format_max + 1];

// The entry, made when there is none; null with `why` set when there is no memory for it.
pppoeia_port_vlan* find_or_add_entry(const char* bridge, pppoeia_port& port, uint16_t vlan, outcome& why)
{
  if (pppoeia_port_vlan* entry = port_vlan_find(port, vlan))
    return entry;
  if (br_port_vlan_add(bridge, port.port_id, vlan) != 0) {
    pppoeia_log(log_debug, "br_port_vlan_add failed");
    why = {-ENOENT, true};
  }
  return port_vlan_find(port, vlan);
}

void log_mode(const pppoeia_bridge& bridge, uint32_t port, uint16_t vlan, int32_t mode)
{
  pppoeia_log(log_debug, "<%s> Port %d vlan %d cid mode set to %d.", bridge.name, static_cast<int>(port), vlan, mode);
}

// `which` is "cid" or "rid".
void log_format(const pppoeia_bridge& bridge, uint32_t port, uint16_t vlan, const char* which, const char* format)
{
  pppoeia_log(log_debug, "<%s> Port %d vlan %d custom %s format set to '%s'.", bridge.name, static_cast<int>(port),
              vlan, which, format);
}

// Takes the mode away. An entry that is kept for its formats holds mode 0 then, not -1.
outcome mode_unset(const char* bridge, pppoeia_bridge& owner, pppoeia_port& port, uint16_t vlan)
{
  pppoeia_port_vlan* entry = port_vlan_find(port, vlan);
  if (!entry)
    return {0};
  if (entry->cid_format[0] || entry->rid_format[0])
    entry->cid_mode = 0;
  else
    br_port_vlan_del(bridge, port.port_id, vlan);
  log_mode(owner, port.port_id, vlan, 0);
  return {0};
}

outcome mode_store(const char* bridge, pppoeia_bridge& owner, pppoeia_port& port, uint16_t vlan, int32_t mode)
{
  outcome why{0};
  pppoeia_port_vlan* entry = find_or_add_entry(bridge, port, vlan, why);
  if (!entry)
    return why;
  entry->cid_mode = mode;
  log_mode(owner, port.port_id, vlan, mode);
  return {0};
}

// Takes a format away, and the entry with it when it carries nothing else.
outcome format_unset(const char* bridge, pppoeia_port& port, uint16_t vlan, format_field field, format_field other)
{
  pppoeia_port_vlan* entry = port_vlan_find(port, vlan);
  if (!entry)
    return {0};
  if (entry->cid_mode == -1 && (entry->*other)[0] == '\0')
    br_port_vlan_del(bridge, port.port_id, vlan);
  else
    (entry->*field)[0] = '\0';
  return {0};
}

outcome format_store(const char* bridge, pppoeia_port& port, uint16_t vlan, format_field field, const char* format)
{
  outcome why{0};
  if (pppoeia_port_vlan* entry = find_or_add_entry(bridge, port, vlan, why))
    text_copy(entry->*field, format);
  return why;
}

// The two identifiers' settings differ only in their fields and in the word of the log line.
int format_set(const operation& self, const char* bridge, uint32_t port, uint16_t vlan, const char* format,
               format_field field, format_field other, const char* which)
{
  self.entry(bridge, port, vlan, format);
  return self.on_port(bridge, port, [&](pppoeia_bridge& owner, pppoeia_port& record) {
    if (text_longer_than(format, port_vlan_format_max))
      return outcome{self.no_space(), true};
    const outcome done = format[0] ? format_store(bridge, record, vlan, field, format)
                                   : format_unset(bridge, record, vlan, field, other);
    if (done.rc == 0)
      log_format(owner, port, vlan, which, format);
    return done;
  });
}

int format_def_set(const operation& self, const char* bridge, uint32_t port, uint16_t vlan, format_field field,
                   const char* which)
{
  self.entry(bridge, port, vlan);
  return self.on_port(bridge, port, [&](pppoeia_bridge& owner, pppoeia_port& record) {
    pppoeia_port_vlan* entry = port_vlan_find(record, vlan);
    if (!entry)
      return outcome{-ENOENT};
    (entry->*field)[0] = '\0';
    log_format(owner, port, vlan, which, "");
    return outcome{0};
  });
}

// Runs `body(entry)` with the port's entry for the VLAN found; -ENOENT without one.
template <typename Body>
int with_entry(const operation& self, const char* bridge, uint32_t id, uint16_t vlan, Body body)
{
  return self.with_port(bridge, id, [&](pppoeia_bridge&, pppoeia_port& port) {
    pppoeia_port_vlan* entry = port_vlan_find(port, vlan);
    if (!entry)
      return -ENOENT;
    body(*entry);
    return 0;
  });
}

using builder = void (*)(char*, pppoeia_bridge*, pppoeia_port*, uint16_t, std::vector<unsigned char>&, int);

// Builds an identifier for a management query and writes its text.
int query(const operation& self, const char* bridge, uint32_t port, uint16_t vid, idGenType useData, builder build,
          char* out)
{
  self.entry(bridge, port);
  pppoeia_bridge* record = bridge_find(bridge);
  if (!record)
    return self.no_entry();
  pppoeia_port* line = port_find(*record, port);
  if (!line)
    return self.no_port(port);
  const no_frame_scope no_frame;
  char text[identifier_text_size] = "";
  std::vector<unsigned char> bin;
  build(text, record, line, vid, bin, useData);
  std::memcpy(out, text, std::strlen(text) + 1);
  return self.result(0);
}

}  // namespace

int pppoeia_circuit_id_mode_port_vlan_set(const char* bridge, uint32_t port, uint16_t vlan, uint32_t mode)
{
  const operation self{__func__};
  self.entry(bridge, port, vlan, mode);
  return self.on_port(bridge, port, [&](pppoeia_bridge& owner, pppoeia_port& record) {
    const auto signed_mode = static_cast<int32_t>(mode);
    return signed_mode == -1 ? mode_unset(bridge, owner, record, vlan)
                             : mode_store(bridge, owner, record, vlan, signed_mode);
  });
}

int pppoeia_circuit_id_mode_port_vlan_def_set(const char* bridge, uint32_t port, uint16_t vlan)
{
  const operation self{__func__};
  self.entry(bridge, port, vlan);
  return self.on_port(bridge, port, [&](pppoeia_bridge& owner, pppoeia_port& record) {
    pppoeia_port_vlan* entry = port_vlan_find(record, vlan);
    if (!entry)
      return outcome{-ENOENT};
    entry->cid_mode = 0;
    log_mode(owner, port, vlan, 0);
    return outcome{0};
  });
}

int pppoeia_circuit_id_mode_port_vlan_get(const char* bridge, uint32_t port, uint16_t vlan, uint32_t* mode)
{
  const operation self{__func__};
  self.entry(bridge, port, vlan);
  return self.on_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port&) {
    return outcome{br_circuit_id_mode_port_vlan_get(bridge, port, vlan, mode)};
  });
}

int pppoeia_circuit_id_format_port_vlan_set(const char* bridge, uint32_t port, uint16_t vlan, const char* format)
{
  return format_set(operation{__func__}, bridge, port, vlan, format, &pppoeia_port_vlan::cid_format,
                    &pppoeia_port_vlan::rid_format, "cid");
}

int pppoeia_circuit_id_format_port_vlan_def_set(const char* bridge, uint32_t port, uint16_t vlan)
{
  return format_def_set(operation{__func__}, bridge, port, vlan, &pppoeia_port_vlan::cid_format, "cid");
}

int pppoeia_circuit_id_format_port_vlan_get(const char* bridge, uint32_t port, uint16_t vlan, char* format)
{
  const operation self{__func__};
  self.entry(bridge, port, vlan);
  return self.on_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port&) {
    return outcome{br_circuit_id_format_port_vlan_get(bridge, port, vlan, format)};
  });
}

int pppoeia_remote_id_format_port_vlan_set(const char* bridge, uint32_t port, uint16_t vlan, const char* format)
{
  return format_set(operation{__func__}, bridge, port, vlan, format, &pppoeia_port_vlan::rid_format,
                    &pppoeia_port_vlan::cid_format, "rid");
}

int pppoeia_remote_id_format_port_vlan_def_set(const char* bridge, uint32_t port, uint16_t vlan)
{
  return format_def_set(operation{__func__}, bridge, port, vlan, &pppoeia_port_vlan::rid_format, "rid");
}

int pppoeia_remote_id_format_port_vlan_get(const char* bridge, uint32_t port, uint16_t vlan, char* format)
{
  const operation self{__func__};
  self.entry(bridge, port, vlan);
  return self.on_port(bridge, port, [&](pppoeia_bridge&, pppoeia_port&) {
    return outcome{br_remote_id_format_port_vlan_get(bridge, port, vlan, format)};
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

int pppoeia_port_circuit_id_get(const char* bridge, uint32_t port, char* circuit_id)
{
  return query(operation{__func__}, bridge, port, vid_none, idGenLive, pppoeia_build_circuit_id, circuit_id);
}

int gen_circuit_id_by_intf_vlan(const char* bridge, uint32_t port, uint16_t vlan, char* circuit_id)
{
  return query(operation{__func__}, bridge, port, vlan, idGenAvailable, pppoeia_build_circuit_id, circuit_id);
}

int gen_remote_id_by_intf_vlan(const char* bridge, uint32_t port, uint16_t vlan, char* remote_id)
{
  return query(operation{__func__}, bridge, port, vlan, idGenAvailable, pppoeia_build_remote_id, remote_id);
}
