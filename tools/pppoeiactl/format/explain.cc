#include "tools/pppoeiactl/format/commands.h"

#include "tools/pppoeiactl/agent/report.h"
#include "tools/pppoeiactl/format/line_view.h"
#include "tools/pppoeiactl/words/commands.h"
#include "tools/pppoeiactl/words/line.h"

#include <algorithm>
#include <cstdio>

namespace {

// Bytes in hexadecimal, for people with a blank between two.
std::string hex_text(const std::vector<unsigned char>& bytes, bool blanks)
{
  std::string text;
  for (const unsigned char byte : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%s%02x", blanks && !text.empty() ? " " : "", byte);
    text += digits;
  }
  return text;
}

void add_bytes(const context& context, report& to, const std::string& key, const std::vector<unsigned char>& bytes)
{
  to.add_word(key, hex_text(bytes, !context.json));
}

std::string list_text(const words& list)
{
  return list.empty() ? "none" : joined(list);
}

void add_identifier(const context& context, report& to, const std::string& name, const identifier_view& id)
{
  to.add_text(name + "-format", id.format);
  to.add_word(name + "-format-from", origin_text(id.format_from));
  to.add_text(name, id.text);
  add_bytes(context, to, name + "-bytes", id.bytes);
  to.add_number(name + "-length", static_cast<int64_t>(id.bytes.size()));
  to.add_flag(name + "-cut", id.cut);
  to.add_flag(name + "-inserted", id.inserted);
  to.add_list(name + "-of-frame", id.of_frame, list_text(id.of_frame));
  to.add_list(name + "-without-value", id.without_value, list_text(id.without_value));
}

nlohmann::ordered_json piece_json(const format_piece& piece, const std::string* result)
{
  report entry;
  entry.add_number("at", static_cast<int64_t>(piece.begin));
  entry.add_word("kind", piece.is_macro ? "macro" : "text");
  entry.add_text("written", piece.text);
  entry.add_word("macro", piece.is_macro ? macroFormatTypeToString(piece.macro.type) : "");
  json_put_text(entry.json(), "meaning", piece_description(piece));
  entry.add_flag("number-carried-over", piece.number_carried);
  entry.add_flag("delimiter-carried-over", piece.delimiter_carried);
  entry.add_word("stays-because", piece.stays);
  json_put_text(entry.json(), "result", result ? *result : "");
  return entry.json();
}

// One line a piece: place, as written, meaning, result.
void print_pieces(const format_reading& reading, const words& results)
{
  size_t width = 0;
  for (const format_piece& piece : reading.pieces)
    width = std::max(width, printable(piece.text).size() + 2);
  for (size_t i = 0; i < reading.pieces.size(); ++i) {
    const format_piece& piece = reading.pieces[i];
    std::printf("%3zu  %-*s  %s", piece.begin, static_cast<int>(width), ("'" + printable(piece.text) + "'").c_str(),
                printable(piece_description(piece)).c_str());
    if (piece.is_macro && !results.empty())
      std::printf("  -> '%s'", printable(results[i]).c_str());
    std::printf("\n");
  }
  std::printf("%3zu  end: %s\n", reading.end, reading.end_reason.c_str());
}

words pieces_expand(const context& context, const format_reading& reading, const words& line)
{
  const uint32_t port = port_word_parse(line[1]);
  const uint16_t vlan = vlan_word_parse(line[2]);
  const uint16_t cvid = line.size() > 3 ? vlan_word_parse(line[3], "cvid") : no_vlan;
  context.demand(row("pppoeia_port_state_get"), {line[0], line[1]});  // a port that does not exist has no values
  format_trial trial(context, line[0]);
  trial.line_set(port, vlan, cvid);
  words parts;
  for (const format_piece& piece : reading.pieces)
    parts.push_back(piece.text);
  return parts.empty() ? parts : trial.expand(parts);
}

}  // namespace

void explain_run(const context& context, const given_words& given)
{
  const words& line = given.arguments;
  const uint32_t port = port_word_parse(line[1]);
  const uint16_t vlan = vlan_word_parse(line[2]);
  const uint16_t cvid = line.size() > 3 ? vlan_word_parse(line[3], "cvid") : no_vlan;
  const line_view view = line_inspector(context, line[0]).view(port, vlan, cvid);
  const api::argument mode{api::kind::out_i32, "mode", 4, api::values::cid_mode};
  report report;
  report.add_text("bridge", line[0]);
  report.add_number("port", port);
  report.add_number("vlan", vlan);
  report.add_number("cvid", cvid, cvid == no_vlan ? "none" : std::to_string(cvid));
  report.add_flag("vlan-enabled", view.vlan_enabled);
  report.add_number("circuit-id-mode", view.mode, agent_client::number_word(mode, view.mode));
  report.add_word("circuit-id-mode-from", origin_text(view.mode_from));
  add_identifier(context, report, "circuit-id", view.circuit_id);
  add_identifier(context, report, "remote-id", view.remote_id);
  report.print(context);
}

void format_explain_run(const context& context, const given_words& given)
{
  const words& line = given.arguments;
  if (line.size() == 2 || line.size() == 3)
    throw command_error(exit_usage, std::string("format explain: ") + (line.size() == 2 ? "PORT" : "VLAN") +
                                        " is missing (usage: " + command_find({"format", "explain"}).row.usage + ")");
  format_length_check("format", line[0]);
  const format_reading reading = format_read(line[0]);
  const bool on_line = line.size() > 1;
  const words results = on_line ? pieces_expand(context, reading, words(line.begin() + 1, line.end())) : words();
  const expansion id = on_line ? pieces_join(reading, results) : expansion();
  report report;
  nlohmann::ordered_json pieces = nlohmann::ordered_json::array();
  for (size_t i = 0; i < reading.pieces.size(); ++i)
    pieces.push_back(piece_json(reading.pieces[i], on_line ? &results[i] : nullptr));
  if (!context.json)
    print_pieces(reading, results);
  if (context.json) {
    report.add_text("format", line[0]);
    report.add_list("pieces", std::move(pieces), "");
    report.add_number("end", static_cast<int64_t>(reading.end));
    report.add_word("end-reason", reading.end_reason);
  }
  report.add_word("kind", reading.makes_bytes() ? "bytes" : "text");
  report.add_flag("expanded", on_line);
  if (on_line || context.json) {
    report.add_text("result", id.text);
    add_bytes(context, report, "result-bytes", id.bytes);
    report.add_number("length", static_cast<int64_t>(id.bytes.size()));
    report.add_flag("cut", id.cut);
  }
  report.print(context);
}
