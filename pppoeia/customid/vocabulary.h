// The words of the macro language: macros with their names and what each can do, option flags, the validity rule.
//
// One table holds it all. A row gives a macro's name as operators write it, the shape of its value, whether it takes
// "h", whether anything knows its value, and where that comes from, for people; parser, formatter, documentation and
// tools read the rows. A new macro is a new row at the end, and its value where the agent answers for macros
// (pppoeia/identifiers/macro_values.cc).
#ifndef PPPOEIA_CUSTOMID_VOCABULARY_H
#define PPPOEIA_CUSTOMID_VOCABULARY_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// SHELF takes no "h" although CHASSIS does: a shelf identifier is a text.
// clang-format off
#define CUSTOMID_MACROS(row) \
  row(SHELF, text, false, true, "shelf identifier of the bridge") \
  row(CHASSIS, number, true, true, "chassis number of the bridge") \
  row(PANEL, text, false, true, "panel text of the port's location, for panel kinds 0 and 1") \
  row(INTF_TYPE, text, false, true, "interface type of the port") \
  row(AGENT_BOARD, number, true, true, "position of this card") \
  row(BOARD, number, true, true, "nothing: always empty") \
  row(PORT, number, true, true, "port id") \
  row(PORT_REM_ID, text, false, true, "remote identifier of the port, else of its parent") \
  row(INTF, text, false, true, "port name") \
  row(INTF_DSCR, text, false, true, "interface description of the port, else of its parent") \
  row(ONU, number, true, true, "ONU number of an \"onu\" or \"gem\" port") \
  row(VGEM, number, true, true, "GEM port number of a \"gem\" port") \
  row(TCONT, number, true, false, "nothing: stays as written") \
  row(PVC_INTF, number, true, true, "PVC interface number of an \"atm\" port") \
  row(VPI, number, true, true, "VPI of an \"atm\" port") \
  row(VCI, number, true, true, "VCI of an \"atm\" port") \
  row(CLNT_MAC, mac, true, true, "source MAC address of the client's frame") \
  row(AGENT_MAC, mac, true, true, "MAC address of the management interface") \
  row(AGENT_IPV4, ipv4, true, true, "IPv4 address of the port's interface, else of the management interface") \
  row(AGENT_IPV6, ipv6, true, true, "IPv6 address of the management interface") \
  row(VLAN, number, true, true, "VLAN id of the frame's outermost tag") \
  row(VLAN_NAME, text, false, true, "name of that VLAN on the bridge") \
  row(CVID, number, true, true, "customer VLAN id; empty in a Remote ID") \
  row(SYSNAME, text, false, true, "system name of the bridge") \
  row(LOCATION, text, false, true, "location text of the bridge") \
  row(CONTACT, text, false, true, "contact text of the bridge") \
  row(HEX, user, false, false, "the hexadecimal digits between \"$\" and the name") \
  row(CPE_SERIAL, text, false, true, "serial number of the CPE") \
  row(CPE_MAC, mac, true, true, "MAC address of the CPE")
// clang-format on

// A macro's number is its place among the rows. Numbers are fixed: they are printed in log lines.
enum customIdFormat : int32_t {
#define CUSTOMID_NUMBER(name, ...) name,
  CUSTOMID_MACROS(CUSTOMID_NUMBER)
#undef CUSTOMID_NUMBER
};

// Begins every macro.
inline constexpr std::string_view macroIdentifier = "$";

// Option flags of one macro.
enum macroStringFlag : char {
  macroStringPrintHex = 0x01,    // "h"
  macroStringNumOfChars = 0x02,  // digits
  macroStringPadZeroes = 0x04,   // "z"
  macroStringPadSpaces = 0x08,   // "s"
  macroStringDelimChar = 0x10,   // "d" and a character
};

// The largest number of characters that the formatter accepts.
inline constexpr unsigned macroNumOfCharsMax = 99;

// What a value looks like before options are applied; tells the formatter how to treat it.
enum class macro_shape : uint8_t { text, number, mac, ipv4, ipv6, user };

struct macro_row {
  customIdFormat type;
  std::string_view name;
  macro_shape shape;
  bool hex;                 // takes "h"
  bool has_source;          // something knows its value; otherwise the macro stays as written
  std::string_view source;  // where the value comes from
};

#define CUSTOMID_ROW(name, shape, ...) macro_row{name, #name, macro_shape::shape, __VA_ARGS__},
inline constexpr auto macro_rows = std::to_array({CUSTOMID_MACROS(CUSTOMID_ROW)});
#undef CUSTOMID_ROW
inline constexpr size_t customIdFormatCount = macro_rows.size();

// The row, or null for a value outside the enumeration.
const macro_row* macro_row_find(customIdFormat macroType);

bool macroIsSupportedForHex(customIdFormat macroType);
bool macroIsSupportedForDelimiter(customIdFormat macroType);
bool macroIsSupportedForUserString(customIdFormat macroType);

// The macro's name, "N/A" for a value outside the enumeration.
std::string macroFormatTypeToString(customIdFormat macroType);

// Whether flags and number go together and suit the macro; the first thing wrong is logged at debug level. The
// delimiter is not looked at.
bool macroAreFlagsValid(customIdFormat macroType, char flags, const std::string& delimiter, unsigned numChars);

#endif
