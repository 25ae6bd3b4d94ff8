// The words of all commands as a tree: what may stand behind what.
#ifndef TOOLS_PPPOEIACTL_WORDS_COMMAND_WORDS_H
#define TOOLS_PPPOEIACTL_WORDS_COMMAND_WORDS_H

#include "tools/pppoeiactl/context.h"

#include <map>
#include <string_view>

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

#endif
