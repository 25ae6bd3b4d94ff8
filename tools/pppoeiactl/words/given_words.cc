#include "tools/pppoeiactl/words/given_words.h"

#include "tools/pppoeiactl/words/line.h"
#include "tools/pppoeiactl/words/suggestion.h"

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
  for (std::string word : line_split(options)) {
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

}  // namespace

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

void arguments_check(const words& arguments, std::string_view usage)
{
  const usage_reading read = usage_read(usage);
  if (arguments.size() >= read.required.size() && arguments.size() <= read.most)
    return;
  const std::string what = arguments.size() > read.most ? "'" + arguments[read.most] + "' is one too many"
                                                        : read.required[arguments.size()] + " is missing";
  throw command_error(exit_usage, read.command + ": " + what + " (usage: " + std::string(usage) + ")");
}
