// "show lines": one row a line.
#ifndef TOOLS_PPPOEIACTL_SHOW_SHOW_LINES_H
#define TOOLS_PPPOEIACTL_SHOW_SHOW_LINES_H

#include "tools/pppoeiactl/words/given_words.h"

inline constexpr char show_lines_usage[] =
    "show lines [BRIDGE...] [COLUMN=VALUE...] [--columns COLUMN,...] [--sort COLUMN] [-b]";
inline constexpr char show_lines_options[] = "--columns= --sort= -b";

// A word with "=", "!=" or "~" in it (is, is not, has in it) chooses lines by a column, other words are bridges.
// Identifiers are those of frames without a VLAN. JSON has all columns.
void show_lines_run(const context& context, const given_words& given);

// The same of one bridge, brief.
void show_lines_of(const context& context, const std::string& bridge);

#endif
