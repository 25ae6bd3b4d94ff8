// "lines" tells who is on which line, and how far each dial-in has come.
#ifndef TOOLS_PPPOEIACTL_SHOW_LINES_H
#define TOOLS_PPPOEIACTL_SHOW_LINES_H

#include "tools/pppoeiactl/words/given_words.h"

inline constexpr char lines_usage[] = "lines [--client MAC] [BRIDGE [PORT]]";
inline constexpr char lines_options[] = "--client=";

// A table, or with --client all that is known of that client's lines.
void lines_run(const context& context, const given_words& given);

#endif
