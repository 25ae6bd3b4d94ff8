#include "pppoeia/customid/vocabulary.h"

#include "pppoeia/customid/trace.h"
#include "pppoeia/log.h"

namespace {

using enum macro_shape;

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

const macro_row* macro_row_find(customIdFormat macroType)
{
  const auto at = static_cast<size_t>(macroType);
  return macroType >= 0 && at < macro_rows.size() ? &macro_rows[at] : nullptr;
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
