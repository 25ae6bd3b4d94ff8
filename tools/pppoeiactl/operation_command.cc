#include "tools/pppoeiactl/operation_command.h"

#include "tools/pppoeiactl/config/memory.h"
#include "tools/pppoeiactl/report.h"
#include "tools/pppoeiactl/warning.h"
#include "tools/pppoeiactl/words/given_words.h"
#include "tools/report_terminal/report_terminal.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <optional>

namespace {

using api::kind;

bool is_record(kind what)
{
  return what == kind::port_info || what == kind::name_update;
}

// Options among the words: those of records gathered as one list, and the terminal. Behind "--" there are none.
struct options {
  words plain;
  std::string record;
  std::optional<std::string> tty;
};

void record_add(std::string& record, const std::string& part)
{
  record += (record.empty() ? "" : ",") + part;
}

// The usage is looked at where it matters only: batches have many lines.
options options_take(const api::operation& operation, const words& inputs)
{
  const auto arguments = operation.arguments();
  const auto wanted = static_cast<size_t>(std::ranges::count_if(arguments, is_written));
  const auto like_option = [](const std::string& word) { return word.starts_with("--"); };
  if (inputs.size() == wanted && std::ranges::none_of(inputs, like_option))
    return {inputs, {}, {}};
  const given_words given = given_words_parse(inputs, operation_usage(operation), operation_options(operation));
  options taken{given.arguments, {}, given.value("--tty")};
  for (const auto& [option, value] : given.options) {
    if (option == "--location")
      record_add(taken.record, value);
    else if (option != "--tty")
      record_add(taken.record, option.substr(2) + "=" + agent_client::record_value(value));
  }
  return taken;
}

// The inputs of all kinds in the operation's order, each checked.
words inputs_arrange(const api::operation& operation, const options& given, const std::string& tty)
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

void warn(const context& context, const api::operation& operation, const words& arranged)
{
  if (context.warn)
    for (const std::string& warning : warnings_of(operation, arranged))
      context.warn(warning);
}

bool reports_to_terminal(const api::operation& operation)
{
  return std::ranges::any_of(operation.arguments(), [](const api::argument& a) { return a.what == kind::tty; });
}

void answer_print(const context& context, const api::operation& operation, const agent_client::answer& answer)
{
  report report;
  report.add(operation, answer);
  if (!report.empty())
    report.print(context);
}

void report_run(const context& context, const api::operation& operation, const options& given)
{
  report_terminal terminal;
  const words arranged = inputs_arrange(operation, given, given.tty.value_or(terminal.path()));
  warn(context, operation, arranged);
  context.demand(operation, arranged);
  const std::string text = terminal.take();
  if (context.json && !given.tty) {
    report report;
    report.add_text("report", text);
    report.print(context);
    return;
  }
  std::fwrite(text.data(), 1, text.size(), stdout);
}

// An id without an operation: the agent's refusal is worth seeing too.
void raw_call(const context& context, uint16_t id, const words& texts)
{
  std::vector<agent_client::buffer> buffers;
  for (const std::string& text : texts) {
    buffers.emplace_back(text.begin(), text.end());
    buffers.back().push_back(0);
  }
  const agent_client::answer answer = context.agent.call(id, std::move(buffers));
  context.demand_arrival(answer);
  if (!answer.ok())
    throw command_error(exit_refused, "call " + std::to_string(id) + ": the agent has no such operation (status " +
                                          std::to_string(answer.status) + ")");
}

}  // namespace

bool is_written(const api::argument& argument)
{
  return !api::is_output(argument.what) && argument.what != kind::tty && !is_record(argument.what);
}

words operation_inputs(const api::operation& operation, const words& line)
{
  return inputs_arrange(operation, options_take(operation, line), "");
}

void operation_run(const context& context, const api::operation& operation, const words& inputs)
{
  const options given = options_take(operation, inputs);
  if (reports_to_terminal(operation)) {
    report_run(context, operation, given);
    return;
  }
  const words arranged = inputs_arrange(operation, given, "");
  warn(context, operation, arranged);
  config::memory_note note(context, operation, arranged);
  const agent_client::answer answer = context.ask(operation, arranged);
  note.answered(answer.result == 0);
  if (answer.result != 0)
    context.refuse(operation, arranged, answer.result);
  answer_print(context, operation, answer);
}

std::string report_of(const context& context, const api::operation& operation, words inputs)
{
  report_terminal terminal;
  inputs.push_back(terminal.path());  // in all of them the last argument
  context.demand(operation, inputs);
  return terminal.take();
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

void call_run(const context& context, const words& line)
{
  const uint16_t id = call_id_parse(line);
  const words rest(line.begin() + 1, line.end());
  if (id < api::operations.size())
    operation_run(context, api::operations[id], rest);
  else
    raw_call(context, id, rest);
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
