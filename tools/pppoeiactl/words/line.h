// One line of a batch file or of the command line, in words.
#ifndef TOOLS_PPPOEIACTL_WORDS_LINE_H
#define TOOLS_PPPOEIACTL_WORDS_LINE_H

#include "tools/pppoeiactl/context.h"

#include <string>
#include <string_view>

// Splits at blanks. '...' and "..." keep blanks; a backslash keeps the next character, outside '...'; \xNN is a byte,
// outside '...'; # begins a comment where a word would begin. Throws command_error for an open quote.
words line_split(std::string_view line);

// The word as line_split() reads it back.
std::string word_quote(const std::string& word);

// The same, without quotes where none are needed.
std::string word_write(const std::string& word);

#endif
