#include "tools/pppoeiactl/words/command_words.h"

#include "tools/pppoeiactl/words/line.h"

#include <algorithm>
#include <cctype>

namespace {

// What a usage says of a command's arguments.
struct usage_reading {
  std::string command;
  words required;
  size_t most = 0;
};

// Arguments stand in capitals, options in brackets with what follows them; "..." ends those that take any number.
usage_reading usage_read(std::string_view usage)
{
  usage_reading read;
  int depth = 0;
  bool of_option = false;
  for (std::string word : line_split(usage)) {
    const auto opened = std::ranges::count(word, '[');
    const auto closed = std::ranges::count(word, ']');
    of_option = (of_option && depth > 0) || word.starts_with("[-");
    const bool optional = depth > 0 || opened > 0;
    depth += static_cast<int>(opened - closed);
    std::erase_if(word, [](char c) { return c == '[' || c == ']'; });
    const bool many = word.ends_with("...");
    const bool is_argument = !word.empty() && std::isupper(static_cast<unsigned char>(word[0]));
    if (of_option)
      continue;
    if (!is_argument) {
      read.command += (read.command.empty() ? "" : " ") + word;
      continue;
    }
    read.most = many ? SIZE_MAX : read.most + 1;
    if (!optional && !many)
      read.required.push_back(word);
  }
  return read;
}

struct option_name {
  std::string name;
  bool has_value;
};

std::vector<option_name> option_names(std::string_view options)
{
  std::vector<option_name> names;
  for (const std::string& word : line_split(options)) {
    const bool has_value = word.ends_with('=');
    names.push_back({has_value ? word.substr(0, word.size() - 1) : word, has_value});
  }
  return names;
}

[[noreturn]] void no_such_option(std::string_view usage, const std::vector<option_name>& known, const std::string& word)
{
  words names;
  std::string list;
  for (const option_name& option : known) {
    names.push_back(option.name);
    list += (list.empty() ? "" : ", ") + option.name;
  }
  const auto meant = suggestion(word, names);
  const std::string hint = list.empty() ? "" : meant ? "; did you mean '" + *meant + "'?" : " (" + list + ")";
  throw command_error(exit_usage, usage_read(usage).command + ": no such option: '" + word + "'" + hint);
}

// What is wrong with the number of the arguments, if anything.
void arguments_check(const words& arguments, std::string_view usage)
{
  const usage_reading read = usage_read(usage);
  if (arguments.size() >= read.required.size() && arguments.size() <= read.most)
    return;
  const std::string what = arguments.size() > read.most ? "'" + arguments[read.most] + "' is one too many"
                                                        : read.required[arguments.size()] + " is missing";
  throw command_error(exit_usage, read.command + ": " + what + " (usage: " + std::string(usage) + ")");
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

bool given_words::has(std::string_view option) const
{
  return value(option).has_value();
}

std::optional<std::string> given_words::value(std::string_view option) const
{
  const auto at = std::find_if(options.rbegin(), options.rend(), [&](const auto& one) { return one.first == option; });
  return at == options.rend() ? std::nullopt : std::optional(at->second);
}

given_words given_words_parse(const words& line, std::string_view usage, std::string_view options)
{
  const std::vector<option_name> known = option_names(options);
  given_words given;
  for (auto word = line.begin(); word != line.end(); ++word) {
    if (*word == "--") {
      given.arguments.insert(given.arguments.end(), word + 1, line.end());
      break;
    }
    const size_t equals = word->starts_with("--") ? word->find('=') : std::string::npos;
    const std::string name = word->substr(0, equals);
    const auto option = std::ranges::find(known, name, &option_name::name);
    if (!word->starts_with("--") && option == known.end()) {  // numbers may be negative
      given.arguments.push_back(*word);
      continue;
    }
    if (option == known.end() || (equals != std::string::npos && !option->has_value))
      no_such_option(usage, known, name);
    if (!option->has_value)
      given.options.emplace_back(name, "");
    else if (equals != std::string::npos)
      given.options.emplace_back(name, word->substr(equals + 1));
    else if (word + 1 == line.end())
      throw command_error(exit_usage, usage_read(usage).command + ": " + name + " needs a value");
    else
      given.options.emplace_back(name, *++word);
  }
  arguments_check(given.arguments, usage);
  return given;
}
