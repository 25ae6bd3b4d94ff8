// Expansion of one format: literal text is copied, macros are replaced by their values, and what cannot be replaced
// stays as it was written.
#include "pppoeia/customid/binary.h"
#include "pppoeia/customid/compiled.h"
#include "pppoeia/customid/customid.h"
#include "pppoeia/customid/formatter.h"
#include "pppoeia/customid/resolver.h"
#include "pppoeia/customid/trace.h"
#include "pppoeia/log.h"
#include "pppoeia/records.h"

namespace {

constexpr char operation[] = "genCustomId";

// For whom an identifier is made.
struct target {
  const pppoeia_bridge* bridge;
  unsigned intf_id;
  unsigned short vid;
  unsigned short cvid;
  idGenType use_data;

  const char* name() const { return bridge->name; }
};

// The identifier so far, where it holds hexadecimal digits, and room for one macro's value on its way.
struct draft {
  std::string text;
  std::vector<hex_segment> hex_segments;
  std::string value;
  std::string processed;
};

// The raw value: the operator's own digits, or what the resolver knows. False when there is no source.
bool value_take(const target& to, const parsed_macro& m, std::string& value)
{
  if (!m.user.empty()) {
    value = m.user;
    return true;
  }
  if (getMacroStringValue(to.bridge, m.type, value, to.intf_id, to.use_data, to.vid, to.cvid))
    return true;
  pppoeia_log(log_debug, "<%s> >> Error reading macro %s. Appending macro string.", to.name(),
              macroFormatTypeToString(m.type).c_str());
  return false;
}

// Of segments at the same place, which follow each other when the earlier is empty, the last one counts.
void hex_segment_add(draft& id)
{
  const hex_segment segment{id.text.size(), static_cast<unsigned>(id.processed.size())};
  if (!id.hex_segments.empty() && id.hex_segments.back().begin == segment.begin)
    id.hex_segments.pop_back();
  else if (id.hex_segments.empty())
    id.hex_segments.reserve(8);
  id.hex_segments.push_back(segment);
}

void macro_expand(const target& to, const parsed_macro& m, draft& id)
{
  if (!value_take(to, m, id.value)) {
    id.text += m.text;
    return;
  }
  if (!processMacroString(id.value, m.type, m.flags, m.delimiter, m.num_chars, id.processed)) {
    CUSTOMID_TRACE("", operation, "Error processing macro string. Appending macro string='%s'\n", m.text.c_str());
    id.text += m.text;
    return;
  }
  if ((m.flags & macroStringPrintHex) || m.type == HEX)
    hex_segment_add(id);
  id.text += id.processed;
}

// Expands the macros that `next` gives one by one, and copies what stands between and behind them.
template <typename Next>
draft format_expand(const target& to, const std::string& format, Next next)
{
  draft id;
  id.text.reserve(2 * bridge_format_max);
  size_t at = 0;
  while (const parsed_macro* macro = next()) {
    id.text.append(format, at, macro->begin - at);
    macro_expand(to, *macro, id);
    at = macro->begin + macro->text.size();
  }
  id.text.append(format, at);
  pppoeia_log(log_debug, "<%s> >> Generated custom ID '%s'.", to.name(), id.text.c_str());
  return id;
}

// While somebody listens, parsing, resolving and formatting take turns, so that their lines come in that order.
draft format_expand(const target& to, const std::string& format)
{
  if (log_enabled(log_debug) || customFormatTestDebug.load(std::memory_order_relaxed)) {
    format_parse parse(format);
    return format_expand(to, format, [&] { return parse.next(); });
  }
  const std::vector<parsed_macro>& macros = format_compiled(format);
  auto at = macros.begin();
  return format_expand(to, format, [&] { return at != macros.end() ? &*at++ : nullptr; });
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
  std::printf("PPPOEIA_DEBUG:%s,%d: genId HEX DUMP=", operation, __LINE__);
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
    if (!id_string_to_bytes(genId, id.hex_segments, genIdBin))
      pppoeia_log(log_debug, "<%s> >> idStringToBinaryVector failed!", to.name());
  }
  length_limit(to, genId, genIdBin);
  trace_bytes(genIdBin);
  customid_trace_end();
  return true;
}
