// All commands of the program and all options of its own, a row each: parser, help, completion and manual page are made
// from these.
#ifndef TOOLS_PPPOEIACTL_WORDS_COMMANDS_H
#define TOOLS_PPPOEIACTL_WORDS_COMMANDS_H

#include "pppoeia/api/table.h"
#include "tools/pppoeiactl/words/command_words.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// What runs a command: an operation as any other, "call", or a function of its own.
enum class runner : uint8_t {
  operation,
  call,
  init,
  show_all,
  show_bridge,
  show_vlan,
  show_port,
  show_lines,
  show_port_vlan,
  check,
  diff,
  apply,
  confirm,
  save,
  lines,
  monitor,
  explain,
  format_explain,
  format_check,
  format_set,
  format_test,
  help,
};

struct command_row {
  std::string words;                          // "format explain"
  std::string usage;                          // the same with arguments and options
  std::string summary;                        // what it does
  std::string example;                        // a whole command; empty: the operation's, made of samples
  const api::operation* operation = nullptr;  // that it is
  runner run = runner::operation;
  std::string_view arguments = {};  // of no operation: by the names that operations have for theirs, "bridge port..."
  std::string_view options = {};    // "--a --b=", with "=" behind those that take a value
};

// All commands: the special ones, then the operations in the order of their ids.
const std::vector<command_row>& command_table();

// Their words; rows are places in the table.
const command_words& all_command_words();

// What a line calls and what stands behind its words. Throws for a line that calls nothing.
struct found_command {
  const command_row& row;
  words rest;
};
found_command command_find(const words& line);

// The arguments and options of a found command that is no operation as any other. Throws as given_words_parse() does.
given_words given_to(const found_command& found);

// The line with the program's own "--force" behind it, where its command has an option of that name.
words command_forced(words line);

// Options of the program itself, which may stand before and behind a command's words.
struct program_option {
  std::string_view name;
  std::string_view other;    // another form that is taken; empty: none
  std::string_view shown;    // the form that people are told
  std::string_view value;    // what it takes; empty: nothing
  std::string_view summary;  // for the help
  std::string_view manual;   // in man macros
};
std::span<const program_option> program_options();

// The one that a word is, or begins with its "=" behind it; null for another word.
const program_option* program_option_find(std::string_view word);

#endif
