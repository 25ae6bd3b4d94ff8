#include "tools/pppoeiactl/words/command_words.h"

#include "tools/pppoeiactl/words/line.h"
#include "tools/pppoeiactl/words/suggestion.h"

#include <algorithm>

namespace {

std::string joined(const words& list, const char* between)
{
  std::string text;
  for (const std::string& word : list)
    text += (text.empty() ? "" : between) + word;
  return text;
}

}  // namespace

// A line on its way down the tree.
struct command_words::reading {
  const node* at;
  words path;  // in full

  words choices() const
  {
    words list;
    for (const auto& [word, next] : at->next)
      list.push_back(word);
    return list;
  }

  std::string in_full(const std::string& last) const
  {
    words all = path;
    all.push_back(last);
    return joined(all, " ");
  }

  // False where no word of the tree is meant; throws where several may be.
  bool step(const std::string& word)
  {
    if (const auto exact = at->next.find(word); exact != at->next.end()) {
      path.push_back(word);
      at = &exact->second;
      return true;
    }
    words fitting;
    for (const std::string& choice : choices())
      if (!word.empty() && choice.starts_with(word))
        fitting.push_back(choice);
    if (fitting.empty())
      return false;
    const std::string shortest = fitting.front();  // they are sorted
    if (!std::ranges::all_of(fitting, [&](const std::string& other) { return other.starts_with(shortest); }))
      throw command_error(exit_usage, in_full(word) + ": may be " + joined(fitting, ", "));
    return step(shortest);
  }

  [[noreturn]] void fail(const std::string& word) const
  {
    std::string why = word_write(word) + ": no such command";
    if (!path.empty())
      why = joined(path, " ") + " " + why;
    if (const auto meant = suggestion(word, choices()))
      why += "; did you mean '" + in_full(*meant) + "'?";
    else
      why += path.empty() ? " ('help' lists them)" : " (" + joined(path, " ") + " " + joined(choices(), ", ") + ")";
    throw command_error(exit_usage, why);
  }
};

void command_words::add(std::string_view command, size_t row, bool takes_arguments)
{
  node* at = &root_;
  for (const std::string& word : line_split(command))
    at = &at->next[word];
  at->ends = true;
  at->row = row;
  at->takes_arguments = takes_arguments;
}

command_words::found command_words::find(const words& line) const
{
  reading read{&root_, {}};
  for (const std::string& word : line) {
    if (read.at->next.empty())
      break;
    if (read.step(word))
      continue;
    const bool option = word.starts_with("-");
    if (!read.at->ends || !(read.at->takes_arguments || option))
      read.fail(word);
    break;
  }
  if (!read.at->ends)
    throw command_error(exit_usage, joined(read.path, " ") + ": needs one of " + joined(read.choices(), ", "));
  return {read.at->row, read.path.size()};
}

words command_words::in_full(const words& begin) const
{
  reading read{&root_, {}};
  for (const std::string& word : begin)
    if (!read.step(word))
      read.fail(word);
  return read.path;
}

words command_words::behind(const words& begin) const
{
  reading read{&root_, {}};
  for (const std::string& word : begin)
    if (!read.step(word))
      return {};
  return read.choices();
}
