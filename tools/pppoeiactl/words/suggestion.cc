#include "tools/pppoeiactl/words/suggestion.h"

#include <algorithm>

namespace {

using row = std::vector<size_t>;

// Steps from one word to another, of which a change of two neighbours is one.
size_t distance(const std::string& from, const std::string& to)
{
  row before_last;
  row last(to.size() + 1);
  for (size_t i = 0; i < last.size(); ++i)
    last[i] = i;
  for (size_t i = 1; i <= from.size(); ++i) {
    row now{i};
    for (size_t j = 1; j <= to.size(); ++j) {
      now.push_back(std::min({last[j] + 1, now[j - 1] + 1, last[j - 1] + (from[i - 1] != to[j - 1])}));
      if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1])
        now[j] = std::min(now[j], before_last[j - 2] + 1);
    }
    before_last = std::move(last);
    last = std::move(now);
  }
  return last.back();
}

}  // namespace

std::optional<std::string> suggestion(const std::string& misspelt, const std::vector<std::string>& known)
{
  const std::string* nearest = nullptr;
  size_t least = std::max<size_t>(misspelt.size() / 3, 1) + 1;
  for (const std::string& word : known)
    if (const size_t steps = distance(misspelt, word); steps < least) {
      nearest = &word;
      least = steps;
    }
  return nearest ? std::optional(*nearest) : std::nullopt;
}
