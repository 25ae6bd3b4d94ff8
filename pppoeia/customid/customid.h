// The macro language of custom identifier formats: one format string, expanded with the values of one line into a text
// or byte identifier. It knows no bridge and no port: who asks for an identifier brings a source of the values.
//
// The road of one macro, "$z3PORT" say:
//
//   parser      finds the name, the "$" before it, and reads what stands between as options
//   source      is asked for the raw value: "7"
//   formatter   makes of it what the options say: "007"
//   generator   puts it behind the text before it, and notes where hexadecimal digits stand
//   binary      turns those digits into bytes, if there are any, when the text is whole
//
// Traps:
//   - Nothing ever fails. A macro that cannot be resolved or formatted stays as written; one that cannot be read ends
//     the expansion, and the rest stays as written.
//   - A macro's number and delimiter are valid for the macros behind it too, until they set their own. Operators rely
//     on it, so parsed macros carry them along (parser.h).
//   - Formats are bytes from operators, values are bytes from records: no locale, no sign of char.
//   - Log lines and traces are behaviour, in their order. While somebody listens, the parser runs in turn with the
//     rest; otherwise its findings are kept per thread, which gives the same identifier.
//   - Workers build identifiers for each PADI and PADR: no debug line is formatted and no format parsed for nothing.
#ifndef PPPOEIA_CUSTOMID_CUSTOMID_H
#define PPPOEIA_CUSTOMID_CUSTOMID_H

#include "pppoeia/customid/vocabulary.h"

#include <cstddef>
#include <string>
#include <vector>

// Where macro values come from.
class macro_source {
public:
  // Whose identifier it is, for log lines.
  virtual const char* name() const = 0;

  // Writes the macro's raw value, before any option, to `value`, whatever it held. False when nothing knows values of
  // that macro; a value that is merely missing is empty.
  virtual bool value(customIdFormat macro, std::string& value) const = 0;

protected:
  ~macro_source() = default;
};

// Longest identifier, in characters or bytes.
inline constexpr size_t customIdMax = 63;

// Expands `format`. `text` receives the text identifier; `bytes`, which must come in empty, receives the byte
// identifier when a macro asked for hexadecimal output and stays empty otherwise. A macro that cannot be resolved or
// formatted is copied as written; an identifier always comes out. Takes no lock.
void custom_id_expand(const macro_source& source, const std::string& format, std::string& text,
                      std::vector<unsigned char>& bytes);

#endif
