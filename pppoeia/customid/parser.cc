#include "pppoeia/customid/parser.h"

#include "pppoeia/customid/trace.h"
#include "pppoeia/log.h"

#include <algorithm>
#include <array>
#include <functional>

namespace {

bool refuse(const char* why)
{
  pppoeia_log(log_debug, "<PPPOEIA> >> %s", why);
  CUSTOMID_TRACE("\t", "getNextMacroFormatString", "%s \n", why);
  return false;
}

bool is_digit(char c)
{
  return c >= '0' && c <= '9';
}

// The run of digits that begins at `at`, which moves behind it; saturates at 32 bits.
unsigned take_number(const std::string& text, size_t& at)
{
  uint64_t value = 0;
  for (; at < text.size() && is_digit(text[at]); ++at)
    value = std::min<uint64_t>(value * 10 + static_cast<uint64_t>(text[at] - '0'), UINT32_MAX);
  return static_cast<unsigned>(value);
}

struct name_match {
  const macro_row* row = nullptr;
  size_t at = std::string::npos;
};

// The macro name that begins first; of two at the same place the longer.
name_match name_find(const std::string& str, size_t from)
{
  name_match best;
  for (const macro_row& row : macro_rows) {
    const size_t at = str.find(row.name, from);
    if (at == std::string::npos)
      continue;
    if (!best.row || at < best.at || (at == best.at && row.name.size() > best.row->name.size()))
      best = {&row, at};
  }
  return best;
}

// The "$" that begins the macro of a name; npos when it stands before `from` or nowhere.
size_t identifier_find(const std::string& str, size_t from, const name_match& found)
{
  const size_t at = found.at == 0 ? std::string::npos : str.rfind(macroIdentifier, found.at - 1);
  return at == std::string::npos || at < from ? std::string::npos : at;
}

// What the next option character is for.
enum class expecting { nothing, number, space_number, delimiter };

// The walk over the option characters of one macro.
class option_walk {
public:
  option_walk(const std::string& text, std::string& delimiter, unsigned& numChars, char& flags)
      : text_(text), delimiter_(delimiter), num_chars_(numChars), flags_(flags)
  {}

  bool run()
  {
    while (at_ < text_.size())
      if (!step())
        return false;
    if (expecting_ == expecting::space_number)
      return refuse("Unexpected exit! Number of characters should follow.");
    return true;
  }

  // Why run() answered false.
  const char* error() const { return error_; }

private:
  bool refuse(const char* why)
  {
    error_ = why;
    return false;
  }

  bool step()
  {
    if (expecting_ == expecting::delimiter) {
      delimiter_.assign(1, text_[at_++]);
      expecting_ = expecting::nothing;
      return true;
    }
    if (expecting_ != expecting::nothing) {
      padding_width();
      return true;
    }
    switch (text_[at_]) {
    case 'h':
      return once(hex_seen_, "Duplicate hex option", macroStringPrintHex, expecting::nothing);
    case 's':
      return once(padding_seen_, "Duplicate padding option", macroStringPadSpaces, expecting::space_number);
    case 'z':
      return once(padding_seen_, "Duplicate padding option", macroStringPadZeroes, expecting::number);
    case 'd':
      return once(delimiter_seen_, "Duplicate delimiter option", macroStringDelimChar, expecting::delimiter);
    default:
      return bare_number();
    }
  }

  // Without digits the width is zero and the character is looked at again.
  void padding_width()
  {
    const bool any = is_digit(text_[at_]);
    num_chars_ = take_number(text_, at_);
    if (any)
      set(macroStringNumOfChars);
    expecting_ = expecting::nothing;
  }

  bool once(bool& seen, const char* duplicate, char flag, expecting next)
  {
    if (seen)
      return refuse(duplicate);
    seen = true;
    set(flag);
    expecting_ = next;
    ++at_;
    return true;
  }

  bool bare_number()
  {
    if (!is_digit(text_[at_]))
      return refuse("Invalid number of characters or unexpected character!");
    size_t end = at_;
    const unsigned value = take_number(text_, end);
    if (padding_seen_)
      return refuse("Duplicate num chars option");
    num_chars_ = value;
    set(macroStringNumOfChars);
    at_ = end;
    return true;
  }

  void set(char flag) { flags_ = static_cast<char>(flags_ | flag); }

  const std::string& text_;
  std::string& delimiter_;
  unsigned& num_chars_;
  char& flags_;
  size_t at_ = 0;
  expecting expecting_ = expecting::nothing;
  bool hex_seen_ = false;
  bool padding_seen_ = false;
  bool delimiter_seen_ = false;
  const char* error_ = nullptr;
};

// A format and what the parser found in it.
struct entry {
  bool filled = false;
  std::string format;
  std::vector<parsed_macro> macros;
};

// One entry a hash value: a bridge has two formats of its own and as many as there are port-VLAN entries with one,
// and a format that loses its place is parsed again.
constexpr size_t entries = 64;

}  // namespace

bool parseOptChars(const std::string& optChars, std::string& delimiter, unsigned& numChars, char& flags)
{
  CUSTOMID_TRACE("\t\t", __func__, "optChars='%s' \n", optChars.c_str());
  option_walk walk(optChars, delimiter, numChars, flags);
  if (!walk.run()) {
    pppoeia_log(log_debug, "<PPPOEIA> >> %s", walk.error());
    CUSTOMID_TRACE("\t\t", __func__, "%s \n", walk.error());
    return false;
  }
  CUSTOMID_TRACE("\t\t", __func__, "delimiter='%s', numChars=%d, flags=0x%02x \n", delimiter.c_str(),
                 static_cast<int>(numChars), static_cast<unsigned char>(flags));
  return true;
}

bool getNextMacroFormatString(const std::string& str, unsigned long startPos, unsigned long& macroFormatStartPos,
                              std::string& macroFormatStr, customIdFormat& macroType, char& flags,
                              std::string& delimiter, unsigned& numChars, std::string& macroUsrStr)
{
  macroFormatStr.clear();
  if (startPos > str.size())
    return refuse("Failed sanity check");
  if (str.empty())
    return refuse("Empty format string");
  const name_match found = name_find(str, startPos);
  if (!found.row) {
    CUSTOMID_TRACE("\t", __func__, "NOT found \n");
    return false;
  }
  const size_t identifier = identifier_find(str, startPos, found);
  if (identifier == std::string::npos)
    return refuse("No macro identifier found");
  const size_t options = identifier + macroIdentifier.size();
  macroType = found.row->type;
  macroFormatStartPos = identifier;
  macroFormatStr = str.substr(identifier, found.at + found.row->name.size() - identifier);
  flags = 0;
  CUSTOMID_TRACE("\t", __func__, "macroFormatStr='%s', macroType=%d \n", macroFormatStr.c_str(), macroType);
  const std::string option_text = str.substr(options, found.at - options);
  if (macroIsSupportedForUserString(macroType)) {
    macroUsrStr = option_text;
    return true;
  }
  return parseOptChars(option_text, delimiter, numChars, flags) || refuse("ERROR: parseOptChars failed");
}

format_end format_end_find(const std::string& str, unsigned long startPos)
{
  const name_match found = name_find(str, startPos);
  if (!found.row)
    return {};
  const size_t identifier = identifier_find(str, startPos, found);
  if (identifier == std::string::npos)
    return {format_end::no_identifier, found.at, found.row->name};
  const size_t options = identifier + macroIdentifier.size();
  const std::string option_text = str.substr(options, found.at - options);
  std::string delimiter;
  unsigned number = 0;
  char flags = 0;
  option_walk walk(option_text, delimiter, number, flags);
  walk.run();
  return {format_end::bad_options, identifier, found.row->name, walk.error()};
}

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
