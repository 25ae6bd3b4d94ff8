#include "tools/pppoeiactl/config/card_file.h"

#include "tools/pppoeiactl/config/card_builder.h"
#include "tools/pppoeiactl/words/commands.h"
#include "tools/pppoeiactl/words/line.h"
#include "tools/pppoeiactl/words/operation_words.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>

namespace config {
namespace {

// An operation with the words behind its own.
using called = std::pair<const api::operation*, words>;

called called_by_id(const words& line)
{
  const uint16_t id = call_id_parse(line);
  if (id >= api::operations.size())
    throw command_error(exit_usage, "call " + line[0] + ": the agent has no such operation");
  return {&api::operations[id], {line.begin() + 1, line.end()}};
}

// What a line calls on the agent; nothing where it only asks.
std::vector<called> calls_of(const words& line)
{
  const found_command found = command_find(line);
  const command_row& row = found.row;
  if (row.run == runner::operation)
    return {{row.operation, found.rest}};
  if (row.run == runner::call)
    return {called_by_id(found.rest)};
  const given_words given = given_to(found);
  if (row.run == runner::apply)
    throw command_error(exit_usage, "apply: not in a file that is a card itself");
  if (row.run == runner::format_set)
    return format_set_calls(given);
  return row.operation ? std::vector<called>{{row.operation, given.arguments}} : std::vector<called>{};
}

// Operations that read or only count, which a file of today may hold.
bool only_asks(const api::operation& operation)
{
  return operation.name.ends_with("_get") || operation.name.ends_with("_reset");
}

class parser {
public:
  explicit parser(card_file& into) : into_(into) {}

  void line(size_t number, const std::string& text)
  {
    words notes;
    try {
      command(number, line_split(text), notes);
    } catch (const command_error& error) {
      into_.findings.push_back({number, true, error.what()});
    }
    for (const std::string& note : notes)
      into_.findings.push_back({number, false, note});
  }

  void end() { into_.wanted = builder_.made(); }

private:
  void command(size_t number, const words& line, words& notes)
  {
    if (line.empty())
      return;
    const std::vector<called> calls = calls_of(line);
    bool lasts = false;
    for (const auto& [operation, rest] : calls)
      lasts = call(number, *operation, operation_inputs(*operation, rest), notes) || only_asks(*operation) || lasts;
    if (!lasts)
      notes.push_back("sets nothing that lasts: no part of a card, left out");
  }

  // False for an operation that sets nothing.
  bool call(size_t number, const api::operation& operation, const words& inputs, words& notes)
  {
    if (!builder_.run(operation, inputs, notes))
      return false;
    if (operation.name == "pppoeia_bridge_add")
      into_.bridge_lines[builder_.named().bridge] = number;
    if (builder_.named().port_is_new)
      into_.port_lines[{builder_.named().bridge, builder_.named().port}] = number;
    return true;
  }

  card_file& into_;
  card_builder builder_;
};

}  // namespace

bool card_file::usable() const
{
  return std::ranges::none_of(findings, &finding::error);
}

card_file card_file_parse(std::istream& lines)
{
  card_file file;
  parser parser(file);
  size_t number = 0;
  for (std::string text; std::getline(lines, text);)
    parser.line(++number, text);
  parser.end();
  return file;
}

card_file card_file_read(const std::string& name)
{
  if (name == "-")
    return card_file_parse(std::cin);
  std::error_code none;
  if (std::filesystem::is_directory(name, none))
    throw command_error(exit_usage, "'" + name + "' is a directory, no file of commands");
  std::ifstream file(name);
  if (!file)
    throw command_error(exit_usage, "'" + name + "': " + std::strerror(errno));
  return card_file_parse(file);
}

std::string finding_text(const std::string& file, const finding& found)
{
  const std::string where = found.line == 0 ? file : file + ":" + std::to_string(found.line);
  return where + (found.error ? ": error: " : ": warning: ") + found.text;
}

void demand_usable(const card_file& file, const std::string& name)
{
  for (const finding& found : file.findings)
    if (found.error)
      std::fprintf(stderr, "%s\n", finding_text(name, found).c_str());
  if (!file.usable())
    throw command_error(exit_usage, "'" + name + "': nothing was changed ('check' tells its warnings too)");
}

}  // namespace config
