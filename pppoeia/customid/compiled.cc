#include "pppoeia/customid/compiled.h"

#include "pppoeia/customid/parser.h"

#include <array>
#include <functional>
#include <string_view>

namespace {

struct entry {
  bool filled = false;
  std::string format;
  std::vector<parsed_macro> macros;
};

// One entry a hash value: a bridge has two formats of its own and as many as there are port-VLAN entries with one,
// and a format that loses its place is parsed again.
constexpr size_t entries = 64;

}  // namespace

const parsed_macro* format_parse::next()
{
  parsed_macro& m = macro_;
  m.user.clear();
  if (!getNextMacroFormatString(format_, at_, m.begin, m.text, m.type, m.flags, m.delimiter, m.num_chars, m.user))
    return nullptr;
  at_ = m.begin + m.text.size();
  return &m;
}

const std::vector<parsed_macro>& format_compiled(const std::string& format)
{
  thread_local std::array<entry, entries> store;
  entry& kept = store[std::hash<std::string_view>{}(format) % entries];
  if (kept.filled && kept.format == format)
    return kept.macros;
  kept.filled = false;
  kept.macros.clear();
  format_parse parse(format);
  while (const parsed_macro* macro = parse.next())
    kept.macros.push_back(*macro);
  kept.format = format;
  kept.filled = true;
  return kept.macros;
}
