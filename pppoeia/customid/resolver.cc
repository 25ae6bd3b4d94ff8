#include "pppoeia/customid/resolver.h"

#include "platform/ncfm/ncfm.h"
#include "pppoeia/customid/test_data.h"
#include "pppoeia/customid/trace.h"
#include "pppoeia/local_mac.h"
#include "pppoeia/log.h"
#include "pppoeia/records.h"
#include "rte/BLL/util/kv_util.h"

#include <cstdio>
#include <cstring>

namespace {

// What a value is asked for.
struct question {
  const pppoeia_bridge& bridge;
  unsigned port_id;
  idGenType use_data;
  unsigned vid;
  unsigned cvid;

  const char* name() const { return bridge.name; }
};

// A text in a record field; bytes after the NUL are not its.
template <size_t Size>
std::string field_text(const char (&field)[Size])
{
  return std::string(field, strnlen(field, Size));
}

std::string decimal(uint32_t number)
{
  return std::to_string(number);
}

// Six groups of two upper-case digits.
std::string mac_text(const uint8_t mac[6])
{
  char text[18];
  std::snprintf(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
  return text;
}

std::string unavailable(const question& q, const char* format)
{
  if (log_enabled(log_debug)) {
    std::string line = "<%s> >> ";
    line += format;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    pppoeia_log(log_debug, line.c_str(), q.name());
#pragma GCC diagnostic pop
  }
  return {};
}

// The port of that id in any slot, the last one included, that is taken; null otherwise. Ids are places.
const pppoeia_port* slot_of(const question& q, uint32_t id)
{
  if (id == 0 || id > q.bridge.port_count)
    return nullptr;
  const pppoeia_port& port = q.bridge.port[id - 1];
  return port.dev_name[0] && port.port_id == id ? &port : nullptr;
}

// The port asked for; null, logged, when it is not there.
const pppoeia_port* port_of(const question& q)
{
  const pppoeia_port* port = slot_of(q, q.port_id);
  if (!port)
    pppoeia_log(log_debug, "<%s> >> pppoeia_port_index_find_by_id failed for port %d", q.name(),
                static_cast<int>(q.port_id));
  return port;
}

bool is_type(const pppoeia_port& port, const char* type)
{
  return std::strcmp(port.type, type) == 0;
}

std::string panel(const question& q)
{
  const pppoeia_port* port = port_of(q);
  if (!port)
    return {};
  if (port->location.panel_kind > 1)
    return unavailable(q, "Cannot read valid panel");
  return field_text(port->location.panel);
}

std::string interface_type(const question& q)
{
  const pppoeia_port* port = port_of(q);
  if (!port)
    return {};
  return port->type[0] ? field_text(port->type) : unavailable(q, "Cannot read valid intf type");
}

std::string agent_board(const question& q)
{
  ncfmBoardPos board;
  return ncfmGetMyBoardPos(&board) == 0 ? decimal(board.position) : unavailable(q, "Cannot read ncfmGetMyBoardPos");
}

std::string port_number(const question& q)
{
  const pppoeia_port* port = port_of(q);
  return port ? decimal(port->port_id) : std::string();
}

// A text of the port, or where it is empty of its parent; one generation.
template <size_t Size>
std::string inherited(const question& q, char (pppoeia_port::*field)[Size], const char* macro)
{
  const pppoeia_port* port = port_of(q);
  if (!port || (port->*field)[0] || port->parent_id == 0)
    return port ? field_text(port->*field) : std::string();
  const int parent_id = static_cast<int>(port->parent_id);
  pppoeia_log(log_debug, "<%s> >> Adding %s from parent id: %d.", q.name(), macro, parent_id);
  const pppoeia_port* parent = slot_of(q, port->parent_id);
  if (parent)
    return field_text(parent->*field);
  pppoeia_log(log_debug, "<%s> >> pppoeia_port_index_find_by_id failed for parent port %d", q.name(), parent_id);
  return {};
}

std::string interface_name(const question& q)
{
  const pppoeia_port* port = slot_of(q, q.port_id);
  return port ? field_text(port->port_name) : unavailable(q, "Invalid port_id\n");
}

std::string onu(const question& q)
{
  if (q.use_data == idGenTest)
    return decimal(customFormatTestData.onu);
  const pppoeia_port* port = port_of(q);
  if (!port)
    return {};
  if (!is_type(*port, "onu") && !is_type(*port, "gem"))
    return unavailable(q, "Not ONU or GEM interface");
  return decimal(port->location.onu);
}

std::string gem(const question& q)
{
  if (q.use_data == idGenTest)
    return decimal(customFormatTestData.vgem);
  const pppoeia_port* port = port_of(q);
  if (!port)
    return {};
  return is_type(*port, "gem") ? decimal(port->location.gem) : unavailable(q, "Not GEM interface");
}

std::string pvc_interface(const question& q)
{
  const pppoeia_port* port = port_of(q);
  if (!port)
    return {};
  return is_type(*port, "atm") ? decimal(port->location.pvc_intf) : unavailable(q, "Non-PVC interface\n");
}

std::string pvc_number(const question& q, int32_t pppoeia_port::*number)
{
  const pppoeia_port* port = slot_of(q, q.port_id);
  if (!port) {
    pppoeia_log(log_debug, "<%s> >> pppoeia_port_index_find failed for port %d'", q.name(),
                static_cast<int>(q.port_id));
    return {};
  }
  const bool set = port->vpi != -1 || port->vci != -1;
  if (!is_type(*port, "atm") || !set)
    return unavailable(q, "Non-PVC interface\n");
  return decimal(static_cast<uint32_t>(port->*number));
}

std::string client_mac(const question& q)
{
  if (q.use_data != idGenLive)
    return mac_text(customFormatTestData.clntMac);
  if (!q.bridge.frame_buffer)
    return unavailable(q, "Invalid frame )\n");
  const uint64_t packed = q.bridge.frame_client_mac.load(std::memory_order_relaxed);
  uint8_t mac[6];
  for (unsigned i = 0; i < 6; ++i)
    mac[i] = static_cast<uint8_t>(packed >> (8 * (5 - i)));
  return mac_text(mac);
}

std::string agent_mac(const question& q)
{
  uint8_t mac[6];
  return pppoeia_get_local_mac(mac) == 0 ? mac_text(mac) : unavailable(q, "pppoeia_get_local_mac failed\n");
}

std::string agent_ipv4(const question& q)
{
  const pppoeia_port* port = slot_of(q, q.port_id);
  ncfmInterface itf;
  if (!port || ncfmGetInterface(port->dev_name, &itf) != 0)
    return unavailable(q, "ip NULL \n");
  return CKvUtil::ipv4ToString(itf.ipv4);
}

std::string agent_ipv6(const question& q)
{
  uint8_t address[16];
  return ncfmGetIpv6(address) == 0 ? CKvUtil::ipv6ToString(address)
                                   : unavailable(q, "getIpv6Addr: ncfmGetIpv6 has failed\n");
}

std::string vlan_name(const question& q)
{
  const pppoeia_vlan* vlan = vlan_find(q.bridge, static_cast<uint16_t>(q.vid));
  if (!vlan)
    return unavailable(q, "Invalid VLAN\n");
  return vlan->name[0] ? field_text(vlan->name) : unavailable(q, "Cannot read VLAN name\n");
}

std::string customer_vlan(const question& q)
{
  constexpr unsigned none = 4095;
  return q.cvid < none ? decimal(q.cvid) : unavailable(q, "Invalid CVID\n");
}

std::string cpe_serial(const question& q)
{
  const pppoeia_port* port = port_of(q);
  return port ? field_text(port->cpe_serial) : std::string();
}

std::string cpe_mac(const question& q)
{
  const pppoeia_port* port = port_of(q);
  return port ? mac_text(port->cpe_mac) : std::string();
}

bool no_source(const question& q, customIdFormat macroType)
{
  pppoeia_log(log_debug, "<%s> >> Unknown macro: %d.\n", q.name(), macroType);
  return false;
}

// False, and `value` untouched, for a macro without a source.
bool value_of(const question& q, customIdFormat macroType, std::string& value)
{
  switch (macroType) {
  case SHELF:
    return value = field_text(q.bridge.shelf_id), true;
  case CHASSIS:
    return value = decimal(q.bridge.chassis_id), true;
  case PANEL:
    return value = panel(q), true;
  case INTF_TYPE:
    return value = interface_type(q), true;
  case AGENT_BOARD:
    return value = agent_board(q), true;
  case BOARD:
    return value = unavailable(q, "Cannot read valid board type"), true;
  case PORT:
    return value = port_number(q), true;
  case PORT_REM_ID:
    return value = inherited(q, &pppoeia_port::remote_id, "PORT_REM_ID"), true;
  case INTF:
    return value = interface_name(q), true;
  case INTF_DSCR:
    return value = inherited(q, &pppoeia_port::intf_descr, "INTF_DSCR"), true;
  case ONU:
    return value = onu(q), true;
  case VGEM:
    return value = gem(q), true;
  case PVC_INTF:
    return value = pvc_interface(q), true;
  case VPI:
    return value = pvc_number(q, &pppoeia_port::vpi), true;
  case VCI:
    return value = pvc_number(q, &pppoeia_port::vci), true;
  case CLNT_MAC:
    return value = client_mac(q), true;
  case AGENT_MAC:
    return value = agent_mac(q), true;
  case AGENT_IPV4:
    return value = agent_ipv4(q), true;
  case AGENT_IPV6:
    return value = agent_ipv6(q), true;
  case VLAN:
    return value = decimal(q.vid), true;
  case VLAN_NAME:
    return value = vlan_name(q), true;
  case CVID:
    return value = customer_vlan(q), true;
  case SYSNAME:
    return value = field_text(q.bridge.sysname), true;
  case LOCATION:
    return value = field_text(q.bridge.location), true;
  case CONTACT:
    return value = field_text(q.bridge.contact), true;
  case CPE_SERIAL:
    return value = cpe_serial(q), true;
  case CPE_MAC:
    return value = cpe_mac(q), true;
  case TCONT:
  case HEX:
    break;
  }
  return no_source(q, macroType);
}

}  // namespace

bool getMacroStringValue(const pppoeia_bridge* bridge, customIdFormat macroType, std::string& macroString,
                         unsigned intfId, idGenType useData, unsigned short vid, unsigned short cvid)
{
  CUSTOMID_TRACE("\t", "macroType=%d('%s'), intfId=%d, useData=%d, vid=%d, cvid=%d \n", macroType,
                 macroFormatTypeToString(macroType).c_str(), static_cast<int>(intfId), useData, vid, cvid);
  const customFormatTestData_t& test = customFormatTestData;
  const question q = useData == idGenTest ? question{*bridge, test.intfId, useData, test.vlan, test.cvid}
                                          : question{*bridge, intfId, useData, vid, cvid};
  macroString.clear();
  const bool known = value_of(q, macroType, macroString);
  CUSTOMID_TRACE("\t", "macroString='%s'\n", macroString.c_str());
  return known;
}
