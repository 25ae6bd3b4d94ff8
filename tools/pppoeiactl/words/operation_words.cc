#include "tools/pppoeiactl/words/operation_words.h"

#include "tools/agent_client/values.h"
#include "tools/pppoeiactl/words/line.h"

#include <algorithm>
#include <charconv>

namespace {

using api::kind;

bool is_record(kind what)
{
  return what == kind::port_info || what == kind::name_update;
}

void record_add(std::string& record, const std::string& part)
{
  record += (record.empty() ? "" : ",") + part;
}

bool is_option(const std::string& word)
{
  return word.starts_with("--");
}

// Takes "key=" off the front of a record's part of "port add", where it has an option of its own.
std::string record_options(const std::string& record)
{
  std::string options;
  std::string location;
  size_t begin = 0;
  for (size_t end = 0; begin < record.size(); begin = end + 1) {
    for (end = begin; end < record.size() && record[end] != ','; ++end)
      end += record[end] == '\\';
    const std::string part = record.substr(begin, std::min(end, record.size()) - begin);
    const size_t equals = part.find('=');
    const std::string key = part.substr(0, equals);
    if (key != "type" && key != "kind" && key != "parent") {
      location += (location.empty() ? "" : ",") + part;
      continue;
    }
    std::string text;
    for (size_t i = equals + 1; i < part.size(); ++i)
      text += part[part[i] == '\\' && i + 1 < part.size() ? ++i : i];
    options += " --" + key + " " + word_write(text);
  }
  return options + (location.empty() ? "" : " --location " + word_write(location));
}

}  // namespace

bool is_written(const api::argument& argument)
{
  return !api::is_output(argument.what) && argument.what != kind::tty && !is_record(argument.what);
}

std::string_view operation_options(const api::operation& operation)
{
  for (const api::argument& argument : operation.arguments()) {
    if (argument.what == kind::port_info)
      return "--type= --kind= --parent= --location=";
    if (argument.what == kind::name_update)
      return "--location=";
    if (argument.what == kind::tty)
      return "--tty=";
  }
  return {};
}

std::string operation_usage(const api::operation& operation)
{
  std::string usage(operation.command);
  for (const api::argument& argument : operation.arguments()) {
    if (argument.what == kind::port_info)
      usage += " [--type TYPE] [--kind N] [--parent PORT] [--location KEY=VALUE,...]";
    else if (argument.what == kind::name_update)
      usage += " [--location KEY=VALUE,...]";
    else if (argument.what == kind::tty)
      usage += " [--tty DEVICE]";
    else if (is_written(argument)) {
      usage += ' ';
      for (const char c : argument.name)
        usage += c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    }
  }
  return usage;
}

// The usage is looked at where it matters only: batches have many lines.
operation_line operation_line_read(const api::operation& operation, const words& line)
{
  const auto arguments = operation.arguments();
  const auto wanted = static_cast<size_t>(std::ranges::count_if(arguments, is_written));
  const auto like_option = [](const std::string& word) { return word.starts_with("--"); };
  if (line.size() == wanted && std::ranges::none_of(line, like_option))
    return {line, {}, {}};
  const given_words given = given_words_parse(line, operation_usage(operation), operation_options(operation));
  operation_line taken{given.arguments, {}, given.value("--tty")};
  for (const auto& [option, value] : given.options) {
    if (option == "--location")
      record_add(taken.record, value);
    else if (option != "--tty")
      record_add(taken.record, option.substr(2) + "=" + agent_client::record_value(value));
  }
  return taken;
}

words inputs_arrange(const api::operation& operation, const operation_line& given, const std::string& tty)
{
  words arranged;
  auto next = given.plain.begin();
  for (const api::argument& argument : operation.arguments()) {
    if (api::is_output(argument.what))
      continue;
    std::string text = argument.what == kind::tty ? tty : given.record;
    if (is_written(argument))
      text = *next++;
    argument_check(argument, text);
    arranged.push_back(text);
  }
  return arranged;
}

words operation_inputs(const api::operation& operation, const words& line)
{
  return inputs_arrange(operation, operation_line_read(operation, line), "");
}

std::string command_text(const api::operation& operation, const words& inputs)
{
  if (operation.name == "pppoeia_init" || operation.name == "pppoeia_fini")
    return operation.name == "pppoeia_init" ? "init" : "fini";
  std::string arguments;
  std::string options;
  bool like_options = false;
  for (size_t i = 0; i < inputs.size(); ++i) {
    const kind what = operation.arguments()[i].what;
    if (what == kind::port_info || what == kind::name_update) {
      options = record_options(inputs[i]);
      continue;
    }
    like_options = like_options || is_option(inputs[i]);
    arguments += " " + word_write(inputs[i]);
  }
  // Options stand behind the arguments, unless one of these looks like an option.
  return std::string(operation.command) + (like_options ? options + " --" + arguments : arguments + options);
}

uint16_t call_id_parse(const words& line)
{
  unsigned id = 0;
  if (line.empty())
    throw command_error(exit_usage, "call: ID is missing (usage: call ID [ARG...])");
  const std::string& text = line[0];
  if (std::from_chars(text.data(), text.data() + text.size(), id).ptr != text.data() + text.size() || text.empty() ||
      id > UINT16_MAX)
    throw command_error(exit_usage, "call: '" + text + "' is no number from 0 to 65535");
  return static_cast<uint16_t>(id);
}

std::vector<std::pair<const api::operation*, words>> format_set_calls(const given_words& given)
{
  std::vector<std::pair<const api::operation*, words>> calls;
  const auto set = [&](const api::operation& operation, const std::string& value) {
    words inputs = given.arguments;
    inputs.push_back(value);
    inputs.insert(inputs.begin(), "--");
    calls.emplace_back(&operation, std::move(inputs));
  };
  const auto circuit_id = given.value("--circuit-id");
  const auto remote_id = given.value("--remote-id");
  const auto mode = given.value("--mode");
  if (given.options.empty())
    throw command_error(exit_usage, std::string("format set: needs one of --circuit-id, --remote-id, --mode"));
  for (const auto& format : {circuit_id, remote_id})
    if (format)
      format_length_check("format", *format);
  const bool ends = mode == "unset";  // the entry does, with what it holds
  if ((mode || circuit_id) && !ends)
    set(row("pppoeia_circuit_id_mode_port_vlan_set"), mode.value_or("custom"));
  if (circuit_id)
    set(row("pppoeia_circuit_id_format_port_vlan_set"), *circuit_id);
  if (remote_id)
    set(row("pppoeia_remote_id_format_port_vlan_set"), *remote_id);
  if (ends)
    set(row("pppoeia_circuit_id_mode_port_vlan_set"), *mode);
  return calls;
}

uint64_t number_word_parse(const std::string& text, uint64_t most, const char* what)
{
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (text.empty() || error != std::errc{} || end != text.data() + text.size() || number > most)
    throw command_error(exit_usage,
                        std::string(what) + ": '" + text + "' is no number from 0 to " + std::to_string(most));
  return number;
}

uint32_t port_word_parse(const std::string& text)
{
  return static_cast<uint32_t>(number_word_parse(text, UINT32_MAX, "port"));
}

uint16_t vlan_word_parse(const std::string& text, const char* what)
{
  return static_cast<uint16_t>(text == "none" ? no_vlan : number_word_parse(text, UINT16_MAX, what));
}

void argument_check(const api::argument& argument, const std::string& text)
{
  std::string why;
  if (!agent_client::encode(argument, text, why))
    throw command_error(exit_usage, why);
}

void format_length_check(const std::string& what, const std::string& format)
{
  const size_t most = row("pppoeia_circuit_id_format_set").arguments().back().size;
  if (format.size() > most)
    throw command_error(exit_usage, what + ": '" + printable(format) + "' has " + std::to_string(format.size()) +
                                        " characters, at most " + std::to_string(most));
}
