#include "tools/pppoeiactl/completion.h"

#include "tools/pppoeiactl/discovery.h"
#include "tools/pppoeiactl/line.h"
#include "tools/pppoeiactl/operation_command.h"

#include <algorithm>
#include <iterator>

namespace {

// Arguments of the commands that are no operations. "bridge...": any number of them.
struct own_command {
  std::string_view command;
  std::string_view arguments;
  std::string_view options;
};

constexpr std::string_view test_options =
    "--circuit-id --remote-id --port --vlan --cvid --onu --gem --tcont-type --mac --mode --debug";

constexpr own_command own_commands[] = {
    {"init", "", ""},
    {"check", "", ""},
    {"diff", "", "--keep --renew --no-trial"},
    {"apply", "", "--dry-run --confirm --keep --renew --no-trial"},
    {"confirm", "", ""},
    {"fini", "", ""},
    {"show", "", ""},
    {"show all", "bridge...", ""},
    {"show bridge", "bridge", ""},
    {"show vlan", "bridge", ""},
    {"show port", "bridge port", ""},
    {"show port-vlan", "bridge port", ""},
    {"save", "bridge...", "--no-trial"},
    {"explain", "bridge port vlan", ""},
    {"format explain", "format bridge port vlan cvid", ""},
    {"format check", "bridge", ""},
    {"format test", "bridge", test_options},
    {"call", "", ""},
};

constexpr std::string_view program_options = "--socket -t --json -batch -force --watch --wait --help";

// What was typed, taken apart.
struct typed {
  words before;        // arguments in front of the word, options with their values left out
  std::string option;  // whose value the word is; empty for an argument
  std::string word;    // what is there of it
};

typed typed_read(const words& arguments, const std::string& word)
{
  typed line{{}, {}, word};
  for (const std::string& argument : arguments) {
    if (!line.option.empty())
      line.option.clear();
    else if (argument.starts_with("--") && argument != "--no-trial")
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
  const auto bridge = before.size() > 1 && name == "vlan" ? before.end() - 2 : before.end() - 1;
  if ((name == "port" || name == "port-selector" || name == "parent") && !before.empty())
    return as_numbers(ports_of(context, name == "parent" ? before.front() : *bridge));
  words vlans;
  if (name == "vlan" && before.size() > 1)
    for (const pppoeia_port_vlan_entry& entry : port_vlans_of(
             context, *bridge, static_cast<uint32_t>(number_word_parse(before.back(), UINT32_MAX, "port id"))))
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

words operation_options(const api::operation& operation)
{
  words options;
  for (const api::argument& argument : operation.arguments()) {
    if (argument.what == api::kind::port_info)
      options = {"--type", "--kind", "--parent", "--location"};
    else if (argument.what == api::kind::name_update)
      options = {"--location"};
    else if (argument.what == api::kind::tty)
      options = {"--tty"};
  }
  return options;
}

words after_operation(const context& context, const api::operation& operation, const typed& line)
{
  if (line.option == "--parent")
    return existing(context, "parent", line.before);
  if (!line.option.empty())
    return option_values(line.option);
  return line.word.starts_with("-") ? operation_options(operation) : argument_values(context, operation, line);
}

words after_own(const context& context, const own_command& command, const typed& line)
{
  if (!line.option.empty())
    return line.option == "--port" ? existing(context, "port", line.before) : option_values(line.option);
  if (line.word.starts_with("-"))
    return line_split(command.options);
  const words arguments = line_split(command.arguments);
  if (arguments.empty())
    return {};
  const size_t position = std::min(line.before.size(), arguments.size() - 1);
  const bool behind = position < line.before.size() && !arguments[position].ends_with("...");
  return behind ? words() : existing(context, arguments[position], line.before);
}

bool begins_with(const words& command, const words& begin)
{
  return begin.size() <= command.size() && std::equal(begin.begin(), begin.end(), command.begin());
}

// Words that go on from there to a longer command.
words command_words(const words& begin)
{
  words found;
  const auto look = [&](std::string_view text) {
    const words command = line_split(text);
    if (begin.size() < command.size() && begins_with(command, begin))
      found.push_back(command[begin.size()]);
  };
  for (const own_command& command : own_commands)
    look(command.command);
  for (const api::operation& operation : api::operations)
    look(operation.command);
  return found;
}

words candidates(const context& context, const words& begin, const std::string& word)
{
  if (begin.empty() && word.starts_with("-"))
    return line_split(program_options);
  words found = command_words(begin);
  words rest;
  const own_command* own = nullptr;
  size_t own_length = 0;
  for (const own_command& command : own_commands) {
    const words text = line_split(command.command);
    if (text.size() > own_length && begins_with(begin, text)) {
      own = &command;
      own_length = text.size();
    }
  }
  words more;
  if (own)
    more = after_own(context, *own,
                     typed_read({begin.begin() + static_cast<std::ptrdiff_t>(own_length), begin.end()}, word));
  else if (const api::operation* operation = operation_of(begin, rest))
    more = after_operation(context, *operation, typed_read(rest, word));
  found.insert(found.end(), more.begin(), more.end());
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
