#include "pppoeia/identifiers/macro_values.h"
#include "pppoeia/identifiers/test_data.h"

namespace {

// The port asked for; null, logged, when it is not there.
const pppoeia_port* port_of(const macro_question& q)
{
  const pppoeia_port* port = macro_values::slot_of(q, q.port_id);
  if (!port)
    pppoeia_log(log_debug, "<%s> >> pppoeia_port_index_find_by_id failed for port %d", q.bridge.name,
                static_cast<int>(q.port_id));
  return port;
}

bool is_type(const pppoeia_port& port, const char* type)
{
  return std::strcmp(port.type, type) == 0;
}

// The macro and how its log line calls a parent that is not there.
struct inheritance {
  const char* macro;
  const char* parent;
};

// The port's parent, null when it has none; logged when it should be there and is not.
const pppoeia_port* parent_of(const macro_question& q, const pppoeia_port& port, const inheritance& words)
{
  if (port.parent_id == 0)
    return nullptr;
  const int id = static_cast<int>(port.parent_id);
  pppoeia_log(log_debug, "<%s> >> Adding %s from parent id: %d.", q.bridge.name, words.macro, id);
  const pppoeia_port* parent = macro_values::slot_of(q, port.parent_id);
  if (!parent)
    pppoeia_log(log_debug, "<%s> >> pppoeia_port_index_find_by_id failed for %s %d", q.bridge.name, words.parent, id);
  return parent;
}

// A text of the port, or where it is empty of its parent; one generation.
template <size_t Size>
void inherited(const macro_question& q, char (port_settings::*field)[Size], const inheritance& words,
               std::string& value)
{
  const pppoeia_port* port = port_of(q);
  if (port && !(port->*field)[0])
    port = parent_of(q, *port, words);
  if (port)
    macro_values::put_text(value, port->*field);
}

void pvc_number(const macro_question& q, int32_t port_settings::*number, std::string& value)
{
  const pppoeia_port* port = macro_values::slot_of(q, q.port_id);
  if (!port)
    return pppoeia_log(log_debug, "<%s> >> pppoeia_port_index_find failed for port %d'", q.bridge.name,
                       static_cast<int>(q.port_id));
  const bool set = port->vpi != -1 || port->vci != -1;
  if (!is_type(*port, "atm") || !set)
    return macro_values::unavailable(q, "Non-PVC interface\n");
  macro_values::put_number(value, static_cast<uint32_t>(port->*number));
}

}  // namespace

namespace macro_values {

void panel(const macro_question& q, std::string& value)
{
  const pppoeia_port* record = port_of(q);
  if (!record)
    return;
  if (record->location.panel_kind > 1)
    return unavailable(q, "Cannot read valid panel");
  put_text(value, record->location.panel);
}

void intf_type(const macro_question& q, std::string& value)
{
  const pppoeia_port* record = port_of(q);
  if (!record)
    return;
  if (!record->type[0])
    return unavailable(q, "Cannot read valid intf type");
  put_text(value, record->type);
}

void port(const macro_question& q, std::string& value)
{
  if (const pppoeia_port* record = port_of(q))
    put_number(value, record->port_id);
}

void port_rem_id(const macro_question& q, std::string& value)
{
  inherited(q, &pppoeia_port::remote_id, {"PORT_REM_ID", "parent port"}, value);
}

void intf(const macro_question& q, std::string& value)
{
  if (const pppoeia_port* record = slot_of(q, q.port_id))
    put_text(value, record->port_name);
  else
    unavailable(q, "Invalid port_id\n");
}

void intf_dscr(const macro_question& q, std::string& value)
{
  inherited(q, &pppoeia_port::intf_descr, {"INTF_DSCR", "port"}, value);
}

void onu(const macro_question& q, std::string& value)
{
  if (q.use_data == idGenTest)
    return put_number(value, customFormatTestData.onu);
  const pppoeia_port* record = port_of(q);
  if (!record)
    return;
  if (!is_type(*record, "onu") && !is_type(*record, "gem"))
    return unavailable(q, "Not ONU or GEM interface");
  put_number(value, record->location.onu);
}

void vgem(const macro_question& q, std::string& value)
{
  if (q.use_data == idGenTest)
    return put_number(value, customFormatTestData.vgem);
  const pppoeia_port* record = port_of(q);
  if (!record)
    return;
  if (!is_type(*record, "gem"))
    return unavailable(q, "Not GEM interface");
  put_number(value, record->location.gem);
}

void pvc_intf(const macro_question& q, std::string& value)
{
  const pppoeia_port* record = port_of(q);
  if (!record)
    return;
  if (!is_type(*record, "atm"))
    return unavailable(q, "Non-PVC interface\n");
  put_number(value, record->location.pvc_intf);
}

void vpi(const macro_question& q, std::string& value)
{
  pvc_number(q, &pppoeia_port::vpi, value);
}

void vci(const macro_question& q, std::string& value)
{
  pvc_number(q, &pppoeia_port::vci, value);
}

void cpe_serial(const macro_question& q, std::string& value)
{
  if (const pppoeia_port* record = port_of(q))
    put_text(value, record->cpe_serial);
}

void cpe_mac(const macro_question& q, std::string& value)
{
  if (const pppoeia_port* record = port_of(q))
    put_mac(value, record->cpe_mac);
}

}  // namespace macro_values
