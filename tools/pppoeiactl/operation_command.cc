#include "tools/pppoeiactl/commands.h"

#include "tools/pppoeiactl/agent/discovery.h"
#include "tools/pppoeiactl/agent/report.h"
#include "tools/pppoeiactl/config/memory.h"
#include "tools/pppoeiactl/words/line.h"
#include "tools/report_terminal/report_terminal.h"

#include <algorithm>
#include <cstdio>
#include <optional>

namespace {

using api::kind;

// Values that the agent takes though they mean nothing
// -------------------------------------------------------------------------------------------------------------------

// Operations that cut a text where others refuse it.
constexpr std::string_view cutting[] = {"pppoeia_port_add", "pppoeia_port_name_update", "pppoeia_bridge_intf_descr_set",
                                        "pppoeia_bridge_cpe_serial_set"};

// Operations that look at the low 12 bits of a VLAN id; lists of entries keep it whole.
constexpr std::string_view masking[] = {"pppoeia_bridge_vlan_set", "pppoeia_bridge_vlan_get"};

constexpr int64_t vlan_most = 4095;
constexpr int64_t frame_least = 60;

bool among(std::span<const std::string_view> names, std::string_view name)
{
  return std::ranges::find(names, name) != names.end();
}

std::string quoted(const api::argument& argument, const std::string& text)
{
  return std::string(argument.name) + ": '" + printable(text) + "' ";
}

std::string of_words(const api::argument& argument, const std::string& text, int64_t number)
{
  std::string list;
  for (const api::value_name& name : api::names_of(argument.words)) {
    if (name.value == number || (name.value == -1 && number == UINT32_MAX))
      return {};
    list += (list.empty() ? "" : ", ") + std::string(name.word);
  }
  return list.empty() ? list : quoted(argument, text) + "means nothing (" + list + ")";
}

std::string of_vlan(const api::operation& operation, const api::argument& argument, const std::string& text,
                    int64_t number)
{
  if (argument.what != kind::u16 || number <= vlan_most)
    return {};
  if (among(masking, operation.name))
    return quoted(argument, text) + "acts on VLAN " + std::to_string(number & vlan_most);
  return quoted(argument, text) + "is the VLAN of no frame (0 to 4095)";
}

std::string of_number(const api::operation& operation, const api::argument& argument, const std::string& text)
{
  const std::optional<int64_t> number = agent_client::number_parse(argument, text);
  if (!number)
    return {};
  if (operation.name == "pppoeia_bridge_max_pdu_set" && *number < frame_least)
    return quoted(argument, text) + "leaves room for no PADI: each is answered with an error";
  if (operation.name == "pppoeia_bridge_add" && argument.name == "ports" && *number < 2)
    return quoted(argument, text) + "leaves room for no port: ports are 1 to one less";
  const std::string why = of_words(argument, text, *number);
  return why.empty() ? of_vlan(operation, argument, text, *number) : why;
}

std::string of_text(const api::operation& operation, const api::argument& argument, const std::string& text)
{
  if (text.size() <= argument.size || !among(cutting, operation.name))
    return {};
  return quoted(argument, text) + "is cut to '" + printable(text.substr(0, argument.size)) + "'";
}

// What is to be said of an operation's inputs before it is called: one line each.
words warnings_of(const api::operation& operation, const words& inputs)
{
  words warnings;
  auto next = inputs.begin();
  for (const api::argument& argument : operation.arguments()) {
    if (api::is_output(argument.what) || next == inputs.end())
      continue;
    const bool number = argument.what == kind::u16 || argument.what == kind::u32 || argument.what == kind::i32;
    const std::string why = number                        ? of_number(operation, argument, *next)
                            : argument.what == kind::text ? of_text(operation, argument, *next)
                                                          : std::string();
    if (!why.empty())
      warnings.push_back(why);
    ++next;
  }
  return warnings;
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

void report_run(const context& context, const api::operation& operation, const operation_line& given)
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

void operation_run(const context& context, const api::operation& operation, const words& inputs)
{
  const operation_line given = operation_line_read(operation, inputs);
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

void call_run(const context& context, const words& line)
{
  const uint16_t id = call_id_parse(line);
  const words rest(line.begin() + 1, line.end());
  if (id < api::operations.size())
    operation_run(context, api::operations[id], rest);
  else
    raw_call(context, id, rest);
}

void init_run(const context& context, const given_words& given)
{
  if (!given.has("--force") && is_initialised(context))
    throw command_error(exit_refused, "init: the agent is initialised already ('apply' changes what it has, 'fini' "
                                      "ends that first, --force leaves its bridges running out of reach)");
  operation_run(context, row("pppoeia_init"), {});
}

void format_set_run(const context& context, const given_words& given)
{
  for (const auto& [operation, inputs] : format_set_calls(given))
    operation_run(context, *operation, inputs);
}
