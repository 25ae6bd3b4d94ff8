// The words of the macro language: macros with their names and what each can do, option flags, the validity rule.
//
// One table holds it all. A row gives a macro's name as operators write it, which options it takes, the function that
// knows its value (values.h) and a line about it for people; parser, formatter, resolver, documentation and tools read
// the rows. A new macro is a new row and a value function.
#ifndef PPPOEIA_CUSTOMID_VOCABULARY_H
#define PPPOEIA_CUSTOMID_VOCABULARY_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

// Numbers are fixed: they are printed in log lines.
enum customIdFormat : int32_t {
  SHELF = 0,
  CHASSIS,
  PANEL,
  INTF_TYPE,
  AGENT_BOARD,
  BOARD,
  PORT,
  PORT_REM_ID,
  INTF,
  INTF_DSCR,
  ONU,
  VGEM,
  TCONT,
  PVC_INTF,
  VPI,
  VCI,
  CLNT_MAC,
  AGENT_MAC,
  AGENT_IPV4,
  AGENT_IPV6,
  VLAN,
  VLAN_NAME,
  CVID,
  SYSNAME,
  LOCATION,
  CONTACT,
  HEX,
  CPE_SERIAL,
  CPE_MAC,
};

inline constexpr size_t customIdFormatCount = 29;

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

struct macro_question;

// Writes the macro's value to an empty string; leaves it empty, logged, when there is none.
using macro_value = void (*)(const macro_question& question, std::string& value);

struct macro_row {
  customIdFormat type;
  std::string_view name;
  macro_shape shape;
  bool hex;                 // takes "h"
  macro_value value;        // null: no source of values at all
  std::string_view source;  // where the value comes from, for people
};

// Row n is macro n.
std::span<const macro_row, customIdFormatCount> macro_rows();

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
