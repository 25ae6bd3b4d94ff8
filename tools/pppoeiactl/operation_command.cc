#include "tools/pppoeiactl/operation_command.h"

#include "tools/pppoeiactl/config/memory.h"
#include "tools/pppoeiactl/report.h"
#include "tools/report_terminal/report_terminal.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <map>
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

options options_take(const words& inputs)
{
  options taken;
  for (size_t i = 0; i < inputs.size(); ++i) {
    const std::string& word = inputs[i];
    if (!word.starts_with("--")) {
      taken.plain.push_back(word);
      continue;
    }
    if (word == "--") {
      taken.plain.insert(taken.plain.end(), inputs.begin() + static_cast<std::ptrdiff_t>(i) + 1, inputs.end());
      break;
    }
    if (i + 1 == inputs.size())
      throw command_error(exit_usage, word + " needs a value");
    const std::string& value = inputs[++i];
    if (word == "--type" || word == "--kind" || word == "--parent")
      record_add(taken.record, word.substr(2) + "=" + agent_client::record_value(value));
    else if (word == "--location")
      record_add(taken.record, value);
    else if (word == "--tty")
      taken.tty = value;
    else
      throw command_error(exit_usage, "no such option: " + word);
  }
  return taken;
}

[[noreturn]] void usage_error(const api::operation& operation)
{
  throw command_error(exit_usage, "usage: " + operation_usage(operation));
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
    if (is_written(argument)) {
      if (next == given.plain.end())
        usage_error(operation);
      text = *next++;
    }
    std::string why;
    if (!agent_client::encode(argument, text, why))
      throw command_error(exit_usage, why);
    arranged.push_back(text);
  }
  if (next != given.plain.end())
    usage_error(operation);
  return arranged;
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
  context.demand(operation, inputs_arrange(operation, given, given.tty.value_or(terminal.path())));
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
    throw command_error(exit_refused,
                        "the agent did not take the request (status " + std::to_string(answer.status) + ")");
}

// Rows by their command words, joined by blanks: a batch looks one up for each of its lines.
const std::map<std::string, const api::operation*, std::less<>>& rows_by_command()
{
  static const auto rows = [] {
    std::map<std::string, const api::operation*, std::less<>> by_command;
    for (const api::operation& operation : api::operations)
      by_command.emplace(operation.command, &operation);
    return by_command;
  }();
  return rows;
}

}  // namespace

bool is_written(const api::argument& argument)
{
  return !api::is_output(argument.what) && argument.what != kind::tty && !is_record(argument.what);
}

const api::operation* operation_of(const words& line, words& rest)
{
  constexpr size_t command_words_max = 3;
  const api::operation* best = nullptr;
  size_t best_length = 0;
  std::string joined;
  for (size_t length = 1; length <= std::min(command_words_max, line.size()); ++length) {
    joined += (length > 1 ? " " : "") + line[length - 1];
    if (const auto at = rows_by_command().find(joined); at != rows_by_command().end()) {
      best = at->second;
      best_length = length;
    }
  }
  rest.assign(line.begin() + static_cast<std::ptrdiff_t>(best_length), line.end());
  return best;
}

words operation_inputs(const api::operation& operation, const words& line)
{
  return inputs_arrange(operation, options_take(line), "");
}

void operation_run(const context& context, const api::operation& operation, const words& inputs)
{
  const options given = options_take(inputs);
  if (reports_to_terminal(operation)) {
    report_run(context, operation, given);
    return;
  }
  const words arranged = inputs_arrange(operation, given, "");
  config::memory_note note(context, operation, arranged);
  const agent_client::answer answer = context.ask(operation, arranged);
  note.answered(answer.result == 0);
  if (answer.result != 0)
    throw command_error(exit_refused, agent_client::error_text(operation.name, answer.result));
  answer_print(context, operation, answer);
}

std::string report_of(const context& context, const api::operation& operation, words inputs)
{
  report_terminal terminal;
  inputs.push_back(terminal.path());  // in all of them the last argument
  context.demand(operation, inputs);
  return terminal.take();
}

void call_run(const context& context, const words& line)
{
  unsigned id = 0;
  const std::string text = line.empty() ? "" : line[0];
  if (std::from_chars(text.data(), text.data() + text.size(), id).ptr != text.data() + text.size() || text.empty() ||
      id > UINT16_MAX)
    throw command_error(exit_usage, "usage: call ID ARG...");
  const words rest(line.begin() + 1, line.end());
  if (id < api::operations.size())
    operation_run(context, api::operations[id], rest);
  else
    raw_call(context, static_cast<uint16_t>(id), rest);
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
