// One command, from its words to its exit status.
#ifndef TOOLS_PPPOEIACTL_COMMAND_H
#define TOOLS_PPPOEIACTL_COMMAND_H

#include "tools/pppoeiactl/words/command_words.h"
#include "tools/pppoeiactl/words/given_words.h"

#include <istream>
#include <string>
#include <vector>

// Runs a command. Throws command_error.
void command_run(const context& context, const words& line);

// Runs a batch, one command a line. Errors go to standard error as "NAME:LINE: text"; the first ends the batch, unless
// `go_on`. The status of the first error, or exit_done.
exit_status batch_run(const context& context, std::istream& lines, const std::string& name, bool go_on);

using command_function = void(const context& context, const given_words& given);

// A command and all that the parser, the help, the completion and the manual page need to know of it.
struct command_row {
  std::string words;                          // "format explain"
  std::string usage;                          // the same with arguments and options
  std::string summary;                        // what it does
  std::string example;                        // a whole command
  const api::operation* operation = nullptr;  // that it is
  command_function* run =
      nullptr;  // null for an operation that is run as any, and for "call", which takes what one takes
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

// The line with the program's own "--force" behind it, where its command has an option of that name.
words command_forced(words line);

// The table as a text.
std::string command_list();

#endif
