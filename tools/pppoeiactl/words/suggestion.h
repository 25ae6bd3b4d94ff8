// The word that was probably meant.
#ifndef TOOLS_PPPOEIACTL_WORDS_SUGGESTION_H
#define TOOLS_PPPOEIACTL_WORDS_SUGGESTION_H

#include <optional>
#include <string>
#include <vector>

// Of words, the one that is nearest to a misspelt one: one or at most a third of its characters inserted, left out,
// replaced or changed round with a neighbour. Nothing when none is near enough.
std::optional<std::string> suggestion(const std::string& misspelt, const std::vector<std::string>& known);

#endif
