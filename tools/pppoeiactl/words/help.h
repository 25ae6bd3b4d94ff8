// What is said about commands: help of a command or a noun with usage, values, defaults and examples, and references
// made from the tables.
#ifndef TOOLS_PPPOEIACTL_WORDS_HELP_H
#define TOOLS_PPPOEIACTL_WORDS_HELP_H

#include "tools/pppoeiactl/words/commands.h"

#include <string>
#include <utility>
#include <vector>

// What a person needs to know of a command beside its usage and summary.
struct command_facts {
  std::vector<std::pair<std::string, std::string>> values;  // arguments and options, with what each takes
  std::string default_value;                                // of a setting; empty: it has none
};
command_facts command_facts_of(const command_row& row);

// "bridge state set br0 on"
std::string example_of(const command_row& row);

// All commands that begin with these words, in full; of no words, what there is to ask about. Throws where no command
// begins so.
std::string help_text(const words& begin);

// The operations as a Markdown table, for docs/ippc.md.
std::string operations_table();

// The manual page pppoeiactl(8), in man macros.
std::string manual_page();

#endif
