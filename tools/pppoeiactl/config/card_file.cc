#include "tools/pppoeiactl/config/card_file.h"

#include "tools/pppoeiactl/command.h"
#include "tools/pppoeiactl/config/card_builder.h"
#include "tools/pppoeiactl/format_set.h"
#include "tools/pppoeiactl/line.h"
#include "tools/pppoeiactl/operation_command.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>

namespace config {
namespace {

// The operation that a line calls, its inputs in `rest`; null for a command that is none.
const api::operation* declared_operation(const words& line, words& rest)
{
  const command_words::found found = all_command_words().find(line);
  const command_row& command = command_table()[found.row];
  rest.assign(line.begin() + static_cast<std::ptrdiff_t>(found.length), line.end());
  if (command.operation)
    return command.operation;
  if (command.words == "call" && !rest.empty()) {
    const std::optional<int64_t> id = agent_client::number_parse({api::kind::u16, "id", 2, {}}, rest[0]);
    rest.erase(rest.begin());
    if (id && static_cast<size_t>(*id) < api::operations.size())
      return &api::operations[static_cast<size_t>(*id)];
  }
  rest = given_words_parse(rest, command.usage, command.options).arguments;
  if (command.words == "init" || command.words == "node init")
    return &row("pppoeia_init");
  return command.words == "fini" ? &row("pppoeia_fini") : nullptr;
}

// The operations that a line calls, each with its inputs: "format set" is several.
std::vector<format_setting> declared_operations(const words& line)
{
  const command_words::found found = all_command_words().find(line);
  const command_row& command = command_table()[found.row];
  words rest(line.begin() + static_cast<std::ptrdiff_t>(found.length), line.end());
  if (command.words == "format set")
    return format_settings(given_words_parse(rest, command.usage, command.options));
  const api::operation* operation = declared_operation(line, rest);
  return {{operation, operation ? operation_inputs(*operation, rest) : words()}};
}

// Commands that read or only count, which a file of today may hold.
bool sets_nothing(const api::operation& operation)
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
    for (const auto& [operation, inputs] : declared_operations(line))
      operation_take(number, operation, inputs, notes);
  }

  void operation_take(size_t number, const api::operation* operation, const words& inputs, words& notes)
  {
    const bool done = operation && builder_.run(*operation, inputs, notes);
    if (!done && !(operation && sets_nothing(*operation)))
      notes.push_back("sets nothing that lasts: no part of a card, left out");
    if (done && operation->name == "pppoeia_bridge_add")
      into_.bridge_lines[builder_.named().bridge] = number;
    if (done && builder_.named().port_is_new)
      into_.port_lines[{builder_.named().bridge, builder_.named().port}] = number;
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
    throw command_error(exit_usage, "'" + name + "' is not applied: nothing was changed");
}

}  // namespace config
