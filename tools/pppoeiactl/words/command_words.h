// The words of a line: which command they call, and which arguments and options stand behind its own.
#ifndef TOOLS_PPPOEIACTL_WORDS_COMMAND_WORDS_H
#define TOOLS_PPPOEIACTL_WORDS_COMMAND_WORDS_H

#include "tools/pppoeiactl/words/command_error.h"

#include <map>
#include <optional>
#include <string_view>
#include <utility>

// The words of all commands as a tree: what may stand behind what.
class command_words {
public:
  // A command of one word or several. `row` is the caller's; `takes_arguments`: other words may follow it.
  void add(std::string_view command, size_t row, bool takes_arguments);

  struct found {
    size_t row;
    size_t length;  // words of the line that are the command's
  };

  // The longest command that the line begins with. A word may be cut short as long as no other command's begins so,
  // or all of these are longer forms of one: "po" is port, not port-vlan. Throws for any other word, with the one that
  // was probably meant.
  found find(const words& line) const;

  // The words as they are meant, down to the last one; throws as find() does.
  words in_full(const words& begin) const;

  // Words that may stand behind these, cut short ones among them.
  words behind(const words& begin) const;

private:
  struct node {
    std::map<std::string, node, std::less<>> next;
    bool ends = false;  // a command does, here
    bool takes_arguments = false;
    size_t row = 0;
  };
  struct reading;

  node root_;
};

// What stands behind a command's own words: arguments and options.
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

#endif
