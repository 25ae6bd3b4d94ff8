#include "tools/pppoeiactl/config/card_file.h"

#include "tools/pppoeiactl/config/card_builder.h"
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

// Commands that ask, and others that leave nothing behind.
constexpr std::string_view other_commands[] = {"show",           "save",         "explain",
                                               "format explain", "format check", "format test"};

bool is_other_command(const words& line)
{
  const std::string two = line.size() > 1 ? line[0] + " " + line[1] : line[0];
  return std::ranges::find(other_commands, line[0]) != std::end(other_commands) ||
         std::ranges::find(other_commands, two) != std::end(other_commands);
}

// The operation that a line calls, its inputs in `rest`; null for a command that is none.
const api::operation* declared_operation(const words& line, words& rest)
{
  if (line[0] == "init" || line[0] == "fini") {
    rest.assign(line.begin() + 1, line.end());
    if (std::erase(rest, "--force") > 0 || rest.empty())
      return &(line[0] == "init" ? row("pppoeia_init") : row("pppoeia_fini"));
    throw command_error(exit_usage, "usage: " + line[0]);
  }
  if (const api::operation* operation = operation_of(line, rest))
    return operation;
  if (is_other_command(line))
    return nullptr;
  if (line[0] == "call" && line.size() > 1) {
    rest.assign(line.begin() + 2, line.end());
    const std::optional<int64_t> id = agent_client::number_parse({api::kind::u16, "id", 2, {}}, line[1]);
    if (id && static_cast<size_t>(*id) < api::operations.size())
      return &api::operations[static_cast<size_t>(*id)];
  }
  throw command_error(exit_usage, "no such command: " + line[0]);
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
    words rest;
    const api::operation* operation = declared_operation(line, rest);
    const bool done = operation && builder_.run(*operation, operation_inputs(*operation, rest), notes);
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
