// Expansion of one format: literal text is copied, macros are replaced by their values, and what cannot be replaced
// stays as it was written.
#include "pppoeia/customid/binary.h"
#include "pppoeia/customid/customid.h"
#include "pppoeia/customid/formatter.h"
#include "pppoeia/customid/parser.h"
#include "pppoeia/customid/trace.h"
#include "pppoeia/log.h"

namespace {

constexpr char operation[] = "genCustomId";

// What most identifiers have room in while they grow.
constexpr size_t usual_size = 256;

// The identifier so far, where it holds hexadecimal digits, and room for one macro's value on its way.
struct draft {
  std::string text;
  std::vector<hex_segment> hex_segments;
  std::string value;
  std::string processed;
};

// The raw value: the operator's own digits, or what the source knows. False when nothing knows it.
bool value_take(const macro_source& source, const parsed_macro& m, std::string& value)
{
  if (!m.user.empty()) {
    value = m.user;
    return true;
  }
  if (source.value(m.type, value))
    return true;
  pppoeia_log(log_debug, "<%s> >> Error reading macro %s. Appending macro string.", source.name(),
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

void macro_expand(const macro_source& source, const parsed_macro& m, draft& id)
{
  if (!value_take(source, m, id.value)) {
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
draft format_expand(const macro_source& source, const std::string& format, Next next)
{
  draft id;
  id.text.reserve(usual_size);
  size_t at = 0;
  while (const parsed_macro* macro = next()) {
    id.text.append(format, at, macro->begin - at);
    macro_expand(source, *macro, id);
    at = macro->begin + macro->text.size();
  }
  id.text.append(format, at);
  if (log_enabled(log_debug))
    pppoeia_log(log_debug, "<%s> >> Generated custom ID '%s'.", source.name(), id.text.c_str());
  return id;
}

// While somebody listens, parsing, resolving and formatting take turns, so that their lines come in that order.
draft format_expand(const macro_source& source, const std::string& format)
{
  if (log_enabled(log_debug) || customFormatTestDebug.load(std::memory_order_relaxed)) {
    format_parse parse(format);
    return format_expand(source, format, [&] { return parse.next(); });
  }
  const std::vector<parsed_macro>& macros = format_compiled(format);
  auto at = macros.begin();
  return format_expand(source, format, [&] { return at != macros.end() ? &*at++ : nullptr; });
}

void length_limit(const macro_source& source, std::string& genId, std::vector<unsigned char>& genIdBin)
{
  const int most = static_cast<int>(customIdMax);
  if (genIdBin.empty() && genId.size() > customIdMax) {
    pppoeia_log(log_debug, "<%s> >> Cutting CHAR string from %ld to %d chars", source.name(),
                static_cast<long>(genId.size()), most);
    genId.resize(customIdMax);
  } else if (genIdBin.size() > customIdMax) {
    pppoeia_log(log_debug, "<%s> >> Cutting BIN string from %ld to %d bytes", source.name(),
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

void custom_id_expand(const macro_source& source, const std::string& format, std::string& text,
                      std::vector<unsigned char>& bytes)
{
  if (log_enabled(log_debug))
    pppoeia_log(log_debug, "<%s> >> genCustomId", source.name());
  draft id = format_expand(source, format);
  text = std::move(id.text);
  if (!id.hex_segments.empty()) {
    pppoeia_log(log_debug, "<%s> >> Generating binary string", source.name());
    if (!id_string_to_bytes(text, id.hex_segments, bytes))
      pppoeia_log(log_debug, "<%s> >> idStringToBinaryVector failed!", source.name());
  }
  length_limit(source, text, bytes);
  trace_bytes(bytes);
  customid_trace_end();
}
