#include "pppoeia/customid/vocabulary.h"

#include "pppoeia/customid/trace.h"
#include "pppoeia/customid/values.h"
#include "pppoeia/log.h"

namespace {

using enum macro_shape;

// SHELF takes no "h" although CHASSIS does: a shelf identifier is a text.
constexpr std::array<macro_row, customIdFormatCount> rows{{
    {SHELF, "SHELF", text, false, macro_values::shelf, "shelf identifier of the bridge"},
    {CHASSIS, "CHASSIS", number, true, macro_values::chassis, "chassis number of the bridge"},
    {PANEL, "PANEL", text, false, macro_values::panel, "panel text of the port's location, for panel kinds 0 and 1"},
    {INTF_TYPE, "INTF_TYPE", text, false, macro_values::intf_type, "interface type of the port"},
    {AGENT_BOARD, "AGENT_BOARD", number, true, macro_values::agent_board, "position of this card"},
    {BOARD, "BOARD", number, true, macro_values::board, "nothing: always empty"},
    {PORT, "PORT", number, true, macro_values::port, "port id"},
    {PORT_REM_ID, "PORT_REM_ID", text, false, macro_values::port_rem_id,
     "remote identifier of the port, else of its parent"},
    {INTF, "INTF", text, false, macro_values::intf, "port name"},
    {INTF_DSCR, "INTF_DSCR", text, false, macro_values::intf_dscr,
     "interface description of the port, else of its parent"},
    {ONU, "ONU", number, true, macro_values::onu, "ONU number of an \"onu\" or \"gem\" port"},
    {VGEM, "VGEM", number, true, macro_values::vgem, "GEM port number of a \"gem\" port"},
    {TCONT, "TCONT", number, true, nullptr, "nothing: stays as written"},
    {PVC_INTF, "PVC_INTF", number, true, macro_values::pvc_intf, "PVC interface number of an \"atm\" port"},
    {VPI, "VPI", number, true, macro_values::vpi, "VPI of an \"atm\" port"},
    {VCI, "VCI", number, true, macro_values::vci, "VCI of an \"atm\" port"},
    {CLNT_MAC, "CLNT_MAC", mac, true, macro_values::clnt_mac, "source MAC address of the client's frame"},
    {AGENT_MAC, "AGENT_MAC", mac, true, macro_values::agent_mac, "MAC address of the management interface"},
    {AGENT_IPV4, "AGENT_IPV4", ipv4, true, macro_values::agent_ipv4,
     "IPv4 address of the port's interface, else of the management interface"},
    {AGENT_IPV6, "AGENT_IPV6", ipv6, true, macro_values::agent_ipv6, "IPv6 address of the management interface"},
    {VLAN, "VLAN", number, true, macro_values::vlan, "VLAN id of the frame's outermost tag"},
    {VLAN_NAME, "VLAN_NAME", text, false, macro_values::vlan_name, "name of that VLAN on the bridge"},
    {CVID, "CVID", number, true, macro_values::cvid, "customer VLAN id; empty in a Remote ID"},
    {SYSNAME, "SYSNAME", text, false, macro_values::sysname, "system name of the bridge"},
    {LOCATION, "LOCATION", text, false, macro_values::location, "location text of the bridge"},
    {CONTACT, "CONTACT", text, false, macro_values::contact, "contact text of the bridge"},
    {HEX, "HEX", user, false, nullptr, "the hexadecimal digits between \"$\" and the name"},
    {CPE_SERIAL, "CPE_SERIAL", text, false, macro_values::cpe_serial, "serial number of the CPE"},
    {CPE_MAC, "CPE_MAC", mac, true, macro_values::cpe_mac, "MAC address of the CPE"},
}};

constexpr bool rows_match_places()
{
  for (size_t i = 0; i < rows.size(); ++i)
    if (static_cast<size_t>(rows[i].type) != i)
      return false;
  return true;
}
static_assert(rows_match_places(), "a macro's number is its place in the table");

bool is_ip(customIdFormat macroType)
{
  return macroType == AGENT_IPV4 || macroType == AGENT_IPV6;
}

bool refuse(const char* why)
{
  pppoeia_log(log_debug, "<PPPOEIA> >> ERROR: %s", why);
  return false;
}

}  // namespace

std::span<const macro_row, customIdFormatCount> macro_rows()
{
  return rows;
}

const macro_row* macro_row_find(customIdFormat macroType)
{
  const auto at = static_cast<size_t>(macroType);
  return macroType >= 0 && at < rows.size() ? &rows[at] : nullptr;
}

bool macroIsSupportedForHex(customIdFormat macroType)
{
  const macro_row* row = macro_row_find(macroType);
  return row && row->hex;
}

bool macroIsSupportedForDelimiter(customIdFormat macroType)
{
  const macro_row* row = macro_row_find(macroType);
  return row && (row->shape == mac || row->shape == ipv4 || row->shape == ipv6);
}

bool macroIsSupportedForUserString(customIdFormat macroType)
{
  const macro_row* row = macro_row_find(macroType);
  return row && row->shape == user;
}

std::string macroFormatTypeToString(customIdFormat macroType)
{
  const macro_row* row = macro_row_find(macroType);
  return std::string(row ? row->name : "N/A");
}

bool macroAreFlagsValid(customIdFormat macroType, char flags, const std::string&, unsigned numChars)
{
  constexpr char padding = macroStringPadZeroes | macroStringPadSpaces;
  constexpr char both_paddings[] = "both macroStringPadZeroes and macroStringPadSpaces set";
  if ((flags & padding) == padding) {
    CUSTOMID_TRACE("", __func__, "macroStringPadZeroes && macroStringPadSpaces \n");
    return refuse(both_paddings);
  }
  if (!is_ip(macroType) && (flags & padding)) {
    // Padding needs a width. It is refused in the words of the rule above.
    if (numChars == 0) {
      CUSTOMID_TRACE("", __func__, "padding, but zero characters \n");
      return refuse(both_paddings);
    }
  } else if ((flags & macroStringNumOfChars) && numChars == 0) {
    CUSTOMID_TRACE("", __func__, "macroStringNumOfChars, but zero characters \n");
    return refuse("macroStringNumOfChars set, but zero characters");
  }
  if ((flags & macroStringPrintHex) && !macroIsSupportedForHex(macroType)) {
    CUSTOMID_TRACE("", __func__, "macroType=%d not supported for HEX \n", macroType);
    return refuse("macro not supported for HEX format");
  }
  return true;
}
