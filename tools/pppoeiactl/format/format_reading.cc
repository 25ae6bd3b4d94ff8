#include "tools/pppoeiactl/format/format_reading.h"

#include "pppoeia/customid/binary.h"
#include "pppoeia/customid/customid.h"
#include "pppoeia/customid/formatter.h"

namespace {

constexpr char paddings = macroStringPadZeroes | macroStringPadSpaces;

bool has(const parsed_macro& macro, int flag)
{
  return (macro.flags & flag) != 0;
}

bool is_address(const macro_row& row)
{
  return row.shape == macro_shape::mac || row.shape == macro_shape::ipv4 || row.shape == macro_shape::ipv6;
}

// A value that the macro might have, to ask the formatter with.
std::string sample_of(const parsed_macro& macro)
{
  switch (macro_row_find(macro.type)->shape) {
  case macro_shape::mac:
    return "02:00:00:00:00:01";
  case macro_shape::ipv4:
    return "192.0.2.1";
  case macro_shape::ipv6:
    return "2001:db8::1";
  case macro_shape::user:
    return macro.user;
  case macro_shape::text:
  case macro_shape::number:
    break;
  }
  return "1";
}

// Which of its rules made the formatter refuse, in the order in which it has them.
std::string refusal(const parsed_macro& macro)
{
  const macro_row& row = *macro_row_find(macro.type);
  if (row.type == HEX)
    return "not hexadecimal digits";
  if ((macro.flags & paddings) == paddings)
    return "zeroes and spaces at once";
  if ((macro.flags & paddings) && macro.num_chars == 0)
    return "padding needs a number of characters";
  if (has(macro, macroStringNumOfChars) && macro.num_chars == 0)
    return "the number of characters is zero";
  if (has(macro, macroStringPrintHex) && !row.hex)
    return "\"h\" is for numbers and addresses";
  if (has(macro, macroStringDelimChar) && !is_address(row))
    return "only MAC and IP addresses take a delimiter";
  if (is_address(row) && (macro.flags & paddings))
    return "MAC and IP addresses are not padded to a number";
  return "more than 99 characters";
}

std::string stays_why(const parsed_macro& macro)
{
  const macro_row& row = *macro_row_find(macro.type);
  if (row.type == HEX ? macro.user.empty() : !row.has_source)
    return row.type == HEX ? "no digits stand before the name" : "has no source of values";
  std::string result;
  if (processMacroString(sample_of(macro), macro.type, macro.flags, macro.delimiter, macro.num_chars, result))
    return {};
  return refusal(macro);
}

void carried_find(format_piece& piece)
{
  const parsed_macro& macro = piece.macro;
  if (macro.type == HEX)
    return;
  const size_t name = macro_row_find(macro.type)->name.size();
  const std::string options = macro.text.substr(1, macro.text.size() - 1 - name);
  std::string delimiter;
  unsigned number = 0;
  char flags = 0;
  parseOptChars(options, delimiter, number, flags);
  piece.delimiter_carried = has(macro, macroStringDelimChar) && delimiter.empty() && !macro.delimiter.empty();
  piece.number_carried = (flags & paddings) && !(flags & macroStringNumOfChars) && number != macro.num_chars;
}

format_piece macro_piece(const parsed_macro& macro)
{
  format_piece piece{macro.begin, macro.text, true, macro, false, false, stays_why(macro)};
  carried_find(piece);
  return piece;
}

std::string end_text(const std::string& format, size_t at)
{
  const format_end end = format_end_find(format, at);
  switch (end.why) {
  case format_end::no_name:
    return "no further macro";
  case format_end::no_identifier:
    return "the name " + std::string(end.name) + " at " + std::to_string(end.begin) + " has no \"$\" before it";
  case format_end::bad_options:
    return "the options of " + std::string(end.name) + " at " + std::to_string(end.begin) +
           " cannot be read: " + end.option_error;
  }
  return {};
}

}  // namespace

bool format_piece::makes_bytes() const
{
  return is_macro && stays.empty() && (macro.type == HEX || has(macro, macroStringPrintHex));
}

bool format_reading::makes_bytes() const
{
  for (const format_piece& piece : pieces)
    if (piece.makes_bytes())
      return true;
  return false;
}

format_reading format_read(const std::string& format)
{
  format_reading reading;
  const auto text_up_to = [&](size_t next) {
    if (next > reading.end)
      reading.pieces.push_back(
          {reading.end, format.substr(reading.end, next - reading.end), false, {}, false, false, {}});
  };
  format_parse parse(format);
  while (const parsed_macro* macro = parse.next()) {
    text_up_to(macro->begin);
    reading.pieces.push_back(macro_piece(*macro));
    reading.end = macro->begin + macro->text.size();
  }
  text_up_to(format.size());
  reading.end_reason = end_text(format, reading.end);
  return reading;
}

std::string piece_description(const format_piece& piece)
{
  if (!piece.is_macro)
    return "text";
  const parsed_macro& macro = piece.macro;
  const macro_row& row = *macro_row_find(macro.type);
  std::string words = std::string(row.name) + ", " + std::string(row.source);
  if (has(macro, macroStringPrintHex))
    words += "; hexadecimal";
  if (has(macro, macroStringPadZeroes))
    words += has(macro, macroStringNumOfChars) ? "; padded with zeroes" : "; zeroes in front";
  if (has(macro, macroStringPadSpaces))
    words += has(macro, macroStringPrintHex) ? "; padded with zero bytes" : "; padded with spaces";
  if (has(macro, macroStringNumOfChars))
    words += std::string((macro.flags & paddings) ? " to " : "; at most ") + std::to_string(macro.num_chars) +
             (has(macro, macroStringPrintHex) ? " bytes" : " characters");
  if (piece.number_carried)
    words += "; number " + std::to_string(macro.num_chars) + " of an earlier macro";
  if (has(macro, macroStringDelimChar))
    words += macro.delimiter.empty() ? "; no delimiter" : "; delimiter '" + macro.delimiter + "'";
  if (piece.delimiter_carried)
    words += " of an earlier macro";
  if (!piece.stays.empty() && (row.has_source || row.type == HEX))  // else the source says it
    words += "; stays as written: " + piece.stays;
  return words;
}

expansion pieces_join(const format_reading& reading, const std::vector<std::string>& results)
{
  expansion id;
  std::vector<hex_segment> segments;
  for (size_t i = 0; i < results.size(); ++i) {
    const format_piece& piece = reading.pieces[i];
    // A macro may still stay as it is written on a line where its value is empty.
    if (piece.makes_bytes() && results[i] != piece.text) {
      if (!segments.empty() && segments.back().begin == id.text.size())
        segments.pop_back();
      segments.push_back({id.text.size(), static_cast<unsigned>(results[i].size())});
    }
    id.text += results[i];
  }
  if (segments.empty())
    id.bytes.assign(id.text.begin(), id.text.end());
  else
    id_string_to_bytes(id.text, segments, id.bytes);
  id.cut = id.bytes.size() > customIdMax;
  if (id.cut)
    id.bytes.resize(customIdMax);
  return id;
}
