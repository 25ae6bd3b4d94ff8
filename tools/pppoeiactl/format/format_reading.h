// How a format is read, as the agent's own parser and formatter do it, in words for people.
#ifndef TOOLS_PPPOEIACTL_FORMAT_FORMAT_READING_H
#define TOOLS_PPPOEIACTL_FORMAT_FORMAT_READING_H

#include "pppoeia/customid/parser.h"

#include <string>
#include <vector>

// A stretch of a format: a macro, or text between macros.
struct format_piece {
  size_t begin = 0;
  std::string text;  // as written
  bool is_macro = false;
  parsed_macro macro;              // of macros
  bool number_carried = false;     // from an earlier macro, its own options give none
  bool delimiter_carried = false;  // likewise
  std::string stays;               // why the macro stays as it is written; empty when it does not

  // Whether its result is hexadecimal digits, which become bytes.
  bool makes_bytes() const;
};

struct format_reading {
  std::vector<format_piece> pieces;  // they make up the whole format
  size_t end = 0;                    // where the search for macros ended
  std::string end_reason;

  bool makes_bytes() const;
};

format_reading format_read(const std::string& format);

// What a piece is: "text", or the macro's source with its options.
std::string piece_description(const format_piece& piece);

// An identifier with its parts. `text` is that of the agent's queries before anything is cut.
struct expansion {
  std::string text;
  std::vector<unsigned char> bytes;  // what goes into the tag, cut at 63; of a text identifier its characters
  bool cut = false;
};

// Puts the results of all pieces together, as the agent does.
expansion pieces_join(const format_reading& reading, const std::vector<std::string>& results);

#endif
