// Takes a format apart, one macro at a time: "$", option characters, name. Strings are bytes.
//
// What the parser makes of a format depends on its text alone, so its findings are kept and found again by the text:
// nothing has to be told when a format changes.
#ifndef PPPOEIA_CUSTOMID_PARSER_H
#define PPPOEIA_CUSTOMID_PARSER_H

#include "pppoeia/customid/vocabulary.h"

#include <string>
#include <string_view>
#include <vector>

// A macro as the parser leaves it. Delimiter and number live on from macro to macro: they may be an earlier one's.
struct parsed_macro {
  unsigned long begin = 0;  // place of its "$" in the format
  customIdFormat type{};
  char flags = 0;
  std::string delimiter;
  unsigned num_chars = 0;
  std::string user;  // HEX only
  std::string text;  // as written, "$" to the end of the name
};

// The parser's walk over one format, logged and traced by the parser as it goes. `format` must outlive it.
class format_parse {
public:
  explicit format_parse(const std::string& format) : format_(format) {}

  // The next macro, valid until the next call; null behind the last one that could be read.
  const parsed_macro* next();

private:
  const std::string& format_;
  unsigned long at_ = 0;
  parsed_macro macro_;
};

// A format's macros from the calling thread's store, parsed when the text is not there. Good until the thread's next
// call. Parsing may log and trace here or not at all: for use while nobody listens.
const std::vector<parsed_macro>& format_compiled(const std::string& format);

// Finds the next macro of `str` at or after `startPos`: `macroFormatStartPos` is the place of its "$",
// `macroFormatStr` its whole text, the others what its options say. False at the end of the macros (silently) and at
// a macro that is wrong (logged at debug level); outputs may then be half written.
//
// `delimiter` and `numChars` are not reset: what a macro's options do not set stays as the caller passed it in, in
// practice the value of an earlier macro. `macroUsrStr` is written for HEX only.
bool getNextMacroFormatString(const std::string& str, unsigned long startPos, unsigned long& macroFormatStartPos,
                              std::string& macroFormatStr, customIdFormat& macroType, char& flags,
                              std::string& delimiter, unsigned& numChars, std::string& macroUsrStr);

// Why getNextMacroFormatString() answers false, for people.
struct format_end {
  enum what { no_name, no_identifier, bad_options } why = no_name;
  size_t begin = std::string::npos;    // of the macro with bad options, or of the name without "$"
  std::string_view name;               // that was met; empty for no_name
  const char* option_error = nullptr;  // of bad_options: the parser's message
};

// The end of `str`, which was reached at `startPos`.
format_end format_end_find(const std::string& str, unsigned long startPos);

// Reads the option characters between "$" and the name. False, logged, at the first that is wrong.
bool parseOptChars(const std::string& optChars, std::string& delimiter, unsigned& numChars, char& flags);

#endif
