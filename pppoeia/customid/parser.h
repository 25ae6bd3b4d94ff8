// Takes a format apart, one macro at a time: "$", option characters, name. Strings are bytes.
#ifndef PPPOEIA_CUSTOMID_PARSER_H
#define PPPOEIA_CUSTOMID_PARSER_H

#include "pppoeia/customid/vocabulary.h"

#include <string>

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
