// Expansion of one format: literal text is copied, macros are replaced by their values, and what cannot be replaced
// stays as it was written.
#include "pppoeia/customid/binary.h"
#include "pppoeia/customid/customid.h"
#include "pppoeia/customid/formatter.h"
#include "pppoeia/customid/parser.h"
#include "pppoeia/customid/resolver.h"
#include "pppoeia/customid/trace.h"
#include "pppoeia/log.h"
#include "pppoeia/records.h"

#include <map>

namespace {

// For whom an identifier is made.
struct target {
  const pppoeia_bridge* bridge;
  unsigned intf_id;
  unsigned short vid;
  unsigned short cvid;
  idGenType use_data;

  const char* name() const { return bridge->name; }
};

// A macro as the parser left it. Delimiter and number live on from macro to macro.
struct macro {
  unsigned long begin = 0;
  customIdFormat type{};
  char flags = 0;
  std::string delimiter;
  unsigned num_chars = 0;
  std::string user;
  std::string text;
};

// The identifier so far, and where it holds hexadecimal digits.
struct draft {
  std::string text;
  std::map<unsigned long, unsigned> hex_segments;
};

// The raw value: the operator's own digits, or what the resolver knows. False when there is no source.
bool value_take(const target& to, macro& m, std::string& value)
{
  if (!m.user.empty()) {
    value = std::move(m.user);
    m.user.clear();
    return true;
  }
  if (getMacroStringValue(to.bridge, m.type, value, to.intf_id, to.use_data, to.vid, to.cvid))
    return true;
  pppoeia_log(log_debug, "<%s> >> Error reading macro %s. Appending macro string.", to.name(),
              macroFormatTypeToString(m.type).c_str());
  return false;
}

void macro_expand(const target& to, macro& m, draft& id)
{
  std::string value;
  std::string processed;
  if (!value_take(to, m, value)) {
    id.text += m.text;
    return;
  }
  if (!processMacroString(value, m.type, m.flags, m.delimiter, m.num_chars, processed)) {
    CUSTOMID_TRACE("", "Error processing macro string. Appending macro string='%s'\n", m.text.c_str());
    id.text += m.text;
    return;
  }
  if ((m.flags & macroStringPrintHex) || m.type == HEX)
    id.hex_segments[id.text.size()] = static_cast<unsigned>(processed.size());
  id.text += processed;
}

draft format_expand(const target& to, const std::string& format)
{
  draft id;
  macro m;
  unsigned long at = 0;
  while (getNextMacroFormatString(format, at, m.begin, m.text, m.type, m.flags, m.delimiter, m.num_chars, m.user)) {
    id.text.append(format, at, m.begin - at);
    macro_expand(to, m, id);
    at = m.begin + m.text.size();
  }
  id.text.append(format, at);
  pppoeia_log(log_debug, "<%s> >> Generated custom ID '%s'.", to.name(), id.text.c_str());
  return id;
}

void length_limit(const target& to, std::string& genId, std::vector<unsigned char>& genIdBin)
{
  const int most = static_cast<int>(customIdMax);
  if (genIdBin.empty() && genId.size() > customIdMax) {
    pppoeia_log(log_debug, "<%s> >> Cutting CHAR string from %ld to %d chars", to.name(),
                static_cast<long>(genId.size()), most);
    genId.resize(customIdMax);
  } else if (genIdBin.size() > customIdMax) {
    pppoeia_log(log_debug, "<%s> >> Cutting BIN string from %ld to %d bytes", to.name(),
                static_cast<long>(genIdBin.size()), most);
    genIdBin.resize(customIdMax);
  }
}

void trace_bytes(const std::vector<unsigned char>& genIdBin)
{
  if (!customFormatTestDebug.load(std::memory_order_relaxed))
    return;
  std::printf("PPPOEIA_DEBUG:%s,%d: genId HEX DUMP=", "genCustomId", __LINE__);
  for (size_t i = 0; i < genIdBin.size(); ++i)
    std::printf(i % 16 == 0 ? "\n%02x " : "%02x ", genIdBin[i]);
  std::printf("\n");
}

}  // namespace

bool genCustomId(const pppoeia_bridge* bridge, unsigned intfId, unsigned short vid, unsigned short cvid,
                 const std::string& formatStr, std::string& genId, std::vector<unsigned char>& genIdBin,
                 idGenType useData)
{
  const target to{bridge, intfId, vid, cvid, useData};
  pppoeia_log(log_debug, "<%s> >> genCustomId", to.name());
  draft id = format_expand(to, formatStr);
  genId = std::move(id.text);
  if (!id.hex_segments.empty()) {
    pppoeia_log(log_debug, "<%s> >> Generating binary string", to.name());
    if (!idStringToBinaryVector(genId, id.hex_segments, genIdBin))
      pppoeia_log(log_debug, "<%s> >> idStringToBinaryVector failed!", to.name());
  }
  length_limit(to, genId, genIdBin);
  trace_bytes(genIdBin);
  return true;
}
