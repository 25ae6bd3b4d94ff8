// What stands behind a command's own words: arguments and options.
#ifndef TOOLS_PPPOEIACTL_WORDS_GIVEN_WORDS_H
#define TOOLS_PPPOEIACTL_WORDS_GIVEN_WORDS_H

#include "tools/pppoeiactl/context.h"

#include <optional>
#include <string_view>
#include <utility>

struct given_words {
  words arguments;
  std::vector<std::pair<std::string, std::string>> options;  // with their values, as they came

  bool has(std::string_view option) const;
  std::optional<std::string> value(std::string_view option) const;  // the last one's
};

// Parts the options from the arguments. `usage` is the whole command's, "save [--no-trial] [BRIDGE...]"; `options`
// names those that it takes, "--no-trial --mode=", with "=" behind those that have a value. Behind "--" all are
// arguments. Throws for an option that is none of them or lacks its value, and where there are fewer or more
// arguments than the usage says.
given_words given_words_parse(const words& line, std::string_view usage, std::string_view options);

// What is wrong with the number of the arguments, if anything.
void arguments_check(const words& arguments, std::string_view usage);

#endif
