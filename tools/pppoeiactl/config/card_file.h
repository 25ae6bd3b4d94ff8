// A file of commands as the card that it makes.
//
// The commands are those of a batch, and the card is what a batch makes of an agent that has just started: so each
// command is done here, in order, to a card in memory, and refused where the agent would refuse it. What only asks or
// resets counters says nothing about a card and is left out.
#ifndef TOOLS_PPPOEIACTL_CONFIG_CARD_FILE_H
#define TOOLS_PPPOEIACTL_CONFIG_CARD_FILE_H

#include "tools/pppoeiactl/config/card.h"

#include <istream>
#include <set>

namespace config {

// Something about a line of the file; line 0 stands for the file as a whole.
struct finding {
  size_t line = 0;
  bool error = false;  // the agent would refuse it, or it is no command; else it means something else than it says
  std::string text;
};

struct card_file {
  card wanted;
  std::vector<finding> findings;               // by line
  std::map<std::string, size_t> bridge_lines;  // where each bridge was added
  std::map<std::pair<std::string, uint32_t>, size_t> port_lines;

  bool usable() const;  // without errors
};

card_file card_file_parse(std::istream& lines);

// Reads FILE, or standard input for "-". Throws command_error when it cannot be read.
card_file card_file_read(const std::string& name);

// "FILE:LINE: error: text".
std::string finding_text(const std::string& file, const finding& found);

// Throws, after telling each error on standard error, unless the file is usable.
void demand_usable(const card_file& file, const std::string& name);

}  // namespace config

#endif
