// One line of a batch file or of the command line in words, and words as people read them.
#ifndef TOOLS_PPPOEIACTL_WORDS_LINE_H
#define TOOLS_PPPOEIACTL_WORDS_LINE_H

#include "tools/pppoeiactl/words/command_error.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Splits at blanks. '...' and "..." keep blanks; a backslash keeps the next character, outside '...'; \xNN is a byte,
// outside '...'; # begins a comment where a word would begin. Throws command_error for an open quote.
words line_split(std::string_view line);

// The word as line_split() reads it back.
std::string word_quote(const std::string& word);

// The same, without quotes where none are needed.
std::string word_write(const std::string& word);

// A text for a terminal: printable ASCII as it is, other bytes as \xNN.
std::string printable(const std::string& text);

// "a, b, c"
std::string joined(const words& list, const char* between = ", ");

// Numbers ascending as people write them: "1 to 4, 7"; "none" for none.
std::string ranges_text(const std::vector<uint32_t>& ids);

// Of words, the one that is nearest to a misspelt one: one or at most a third of its characters inserted, left out,
// replaced or changed round with a neighbour. Nothing when none is near enough.
std::optional<std::string> suggestion(const std::string& misspelt, const words& known);

#endif
