#include "tools/pppoeiactl/commands.h"

#include "tools/pppoeiactl/agent/discovery.h"
#include "tools/pppoeiactl/words/commands.h"
#include "tools/pppoeiactl/words/line.h"
#include "tools/pppoeiactl/words/operation_words.h"

#include <algorithm>

namespace {

// What was typed, taken apart.
struct typed {
  words before;        // arguments in front of the word, options with their values left out
  std::string option;  // whose value the word is; empty for an argument
};

typed typed_read(const words& arguments, std::string_view options)
{
  const words known = line_split(options);
  typed line;
  for (const std::string& argument : arguments) {
    if (!line.option.empty())
      line.option.clear();
    else if (std::ranges::find(known, argument + "=") != known.end())
      line.option = argument;
    else if (!argument.starts_with("--"))
      line.before.push_back(argument);
  }
  return line;
}

template <typename Range>
words as_words(const Range& range)
{
  words list;
  for (const auto& word : range)
    list.emplace_back(word);
  return list;
}

template <typename Number>
words as_numbers(const std::vector<Number>& numbers)
{
  words list;
  for (const Number number : numbers)
    list.push_back(std::to_string(number));
  return list;
}

words value_names(api::values set)
{
  words names;
  for (const api::value_name& name : api::names_of(set))
    names.emplace_back(name.word);
  return names;
}

words option_values(const std::string& option)
{
  if (option == "--type")
    return {"eth", "atm", "onu", "gem"};
  if (option == "--location")
    return {"panel-kind=", "panel=", "onu=", "gem=", "pvc="};
  if (option == "--mode")
    return as_words(api::test_run_modes);
  return option == "--debug" ? value_names(api::values::on_off) : words();
}

// What the agent has for an argument of that name, the ones before it being known.
words existing(const context& context, std::string_view name, const words& before)
{
  if (name == "bridge" || name == "bridge...")
    return bridges_of(context);
  if (before.empty())
    return {};
  const auto bridge = before.size() > 1 && name == "vlan" ? before.end() - 2 : before.end() - 1;
  if (name == "port" || name == "port-selector" || name == "parent")
    return as_numbers(ports_of(context, name == "parent" ? before.front() : *bridge));
  words vlans;
  if (name == "vlan" && before.size() > 1)
    for (const pppoeia_port_vlan_entry& entry : port_vlans_of(context, *bridge, port_word_parse(before.back())))
      vlans.push_back(std::to_string(entry.vlan_id));
  return vlans;
}

words argument_values(const context& context, const api::operation& operation, const typed& line)
{
  size_t position = 0;
  for (const api::argument& argument : operation.arguments()) {
    if (!is_written(argument) || position++ < line.before.size())
      continue;
    if (argument.words == api::values::test_option)
      return as_words(api::test_set_options);
    if (argument.words == api::values::test_run)
      return argument.name == "mode" ? as_words(api::test_run_modes) : as_words(api::test_run_options);
    if (argument.words != api::values::none)
      return value_names(argument.words);
    const bool new_port = operation.id == api::operation_id("pppoeia_port_add") && argument.name == "port";
    return new_port ? words() : existing(context, argument.name, line.before);
  }
  return {};
}

// Names of options, without the "=" that says that a value follows.
words option_words(std::string_view options)
{
  words names = line_split(options);
  for (std::string& name : names)
    if (name.ends_with('='))
      name.pop_back();
  return names;
}

words after_operation(const context& context, const api::operation& operation, const typed& line)
{
  if (line.option == "--parent")
    return existing(context, "parent", line.before);
  if (!line.option.empty())
    return option_values(line.option);
  return argument_values(context, operation, line);
}

words after_own(const context& context, const command_row& command, const typed& line)
{
  if (!line.option.empty())
    return line.option == "--port" ? existing(context, "port", line.before) : option_values(line.option);
  const words arguments = line_split(command.arguments);
  if (arguments.empty())
    return {};
  const size_t position = std::min(line.before.size(), arguments.size() - 1);
  const bool behind = position < line.before.size() && !arguments[position].ends_with("...");
  return behind ? words() : existing(context, arguments[position], line.before);
}

words command_candidates(const context& context, const words& begin, const std::string& word)
{
  const auto [command, rest] = command_find(begin);
  const typed line = typed_read(rest, command.options);
  if (line.option.empty() && word.starts_with("-"))
    return option_words(command.options);
  return command.operation ? after_operation(context, *command.operation, line) : after_own(context, command, line);
}

words shown_options()
{
  words names;
  for (const program_option& option : program_options())
    if (option.name != "--version")  // is asked for once, in full
      names.emplace_back(option.shown);
  return names;
}

words candidates(const context& context, const words& begin, const std::string& word)
{
  if (begin.empty() && word.starts_with("-"))
    return shown_options();
  words found = all_command_words().behind(begin);
  try {
    const words more = command_candidates(context, begin, word);
    found.insert(found.end(), more.begin(), more.end());
  } catch (const command_error&) {
    // No command yet, but the beginning of one.
  }
  return found;
}

}  // namespace

words completions(const context& context, const words& line)
{
  const std::string word = line.empty() ? "" : line.back();
  words found;
  try {
    found = candidates(context, words(line.begin(), line.empty() ? line.end() : line.end() - 1), word);
  } catch (const command_error&) {
    return {};  // nothing to offer
  }
  words fitting;
  for (const std::string& candidate : found)
    if (candidate.starts_with(word) && std::ranges::find(fitting, candidate) == fitting.end())
      fitting.push_back(candidate);
  return fitting;
}
