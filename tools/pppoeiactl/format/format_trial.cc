#include "tools/pppoeiactl/format/format_trial.h"

#include "tools/pppoeiactl/agent/bridge_report.h"
#include "tools/pppoeiactl/words/line.h"

#include <algorithm>
#include <list>

namespace {

// The items' names for the operation that sets them, and in the report of the test data.
struct item_name {
  const char* option;
  std::string_view begin;
  std::string_view end;
};
constexpr item_name item_names[] = {
    {"pppoeiaTestSetIntfId", "\nintfId:", "\n"},
    {"pppoeiaTestSetVlan", "\nvlan:", "\n"},
    {"pppoeiaTestSetCvid", "\ncvid:", "\n"},
    {"pppoeiaTestSetCustomCidStr", "\ncustomCidStr: '", "'\ncustomRidStr: '"},
};

[[noreturn]] void not_understood(const std::string& report)
{
  throw command_error(exit_refused, "the agent's test report is not understood: '" + printable(report) + "'");
}

std::string between(const std::string& report, std::string_view begin, std::string_view end)
{
  const size_t at = report.find(begin);
  const size_t from = at + begin.size();
  const size_t to = at == std::string::npos ? at : report.find(end, from);
  if (to == std::string::npos)
    not_understood(report);
  return report.substr(from, to - from);
}

// The identifier in the report of a run.
std::string expanded_text(const std::string& report)
{
  constexpr std::string_view head = "\n Generated Custom Circuit Id: '";
  constexpr std::string_view tail = "'\n";
  if (report.size() < head.size() + tail.size() || !report.starts_with(head) || !report.ends_with(tail))
    not_understood(report);
  return report.substr(head.size(), report.size() - head.size() - tail.size());
}

words split(const std::string& text, char separator)
{
  words parts(1);
  for (const char c : text) {
    if (c == separator)
      parts.emplace_back();
    else
      parts.back() += c;
  }
  return parts;
}

// The agent cuts text identifiers at 63 characters, but of byte identifiers it shows the whole text: two digits in
// front make it one. A control character between the parts tells them apart; when a value holds it, the next is tried.
constexpr std::string_view front = "$00HEX";
constexpr std::string_view front_result = "00";

std::string parts_join(const words& parts, char separator)
{
  std::string joined(front);
  for (const std::string& part : parts)
    joined += separator + part;
  return joined;
}

// False when the values hold the separator.
bool values_part(const std::string& text, char separator, size_t count, words& values)
{
  values = split(text, separator);
  if (values.size() != count + 1 || values[0] != front_result)
    return false;
  values.erase(values.begin());
  return true;
}

}  // namespace

format_trial::format_trial(const context& context, std::string bridge) : context_(context), bridge_(std::move(bridge))
{
  const std::string report = report_of(context_, row("pppoeia_test_dump"), {bridge_});
  for (size_t i = 0; i < item_count; ++i)
    found_[i] = between(report, item_names[i].begin, item_names[i].end);
}

format_trial::~format_trial()
{
  try {
    for (size_t i = 0; i < item_count; ++i)
      if (given_[i])
        set(static_cast<item>(i), found_[i]);
  } catch (const command_error&) {
    // The agent has gone or hangs: there is nothing left to put back, and the command has failed or ended already.
  }
}

void format_trial::set(item which, const std::string& value)
{
  if (given_[which] == value)
    return;
  context_.demand(row("pppoeia_test_set"), {bridge_, item_names[which].option, value, ""});
  given_[which] = value;
}

void format_trial::line_set(uint32_t port_id, uint32_t vlan_id, uint32_t cvid_id)
{
  set(port, std::to_string(port_id));
  set(vlan, std::to_string(vlan_id));
  set(cvid, std::to_string(cvid_id));
}

std::string format_trial::run()
{
  return expanded_text(report_of(context_, row("pppoeia_test_run"), {bridge_, "pppoeiaTestRunCid", "available"}));
}

words format_trial::expand(const words& parts)
{
  for (char separator = 1; separator < ' '; ++separator) {
    const auto holds_it = [&](const std::string& part) { return part.find(separator) != std::string::npos; };
    if (std::ranges::any_of(parts, holds_it))
      continue;
    set(format, parts_join(parts, separator));
    words values;
    if (values_part(run(), separator, parts.size(), values))
      return values;
  }
  throw command_error(exit_refused, "the values of the formats cannot be told apart");
}

std::vector<words> format_trial::expand_on(const std::vector<uint32_t>& ports, const words& parts)
{
  constexpr char separator = 1;
  if (ports.empty())
    return {};
  set(vlan, std::to_string(no_vlan));
  set(cvid, std::to_string(no_vlan));
  set(format, parts_join(parts, separator));
  std::vector<agent_client::question> questions;
  std::list<report_terminal> reports;
  for (const uint32_t id : ports) {
    reports.emplace_back();
    questions.push_back({&row("pppoeia_test_set"), {bridge_, item_names[port].option, std::to_string(id), ""}, {}});
    questions.push_back(
        {&row("pppoeia_test_run"), {bridge_, "pppoeiaTestRunCid", "available", reports.back().path()}, {}});
  }
  given_[port] = std::to_string(ports.back());
  context_.agent.call_all(questions);
  for (const agent_client::question& one : questions) {
    context_.demand_arrival(one.told);
    if (!one.told.ok())
      context_.refuse(*one.operation, one.inputs, one.told.result);
  }
  std::vector<words> expanded(ports.size());
  auto report = reports.begin();
  for (size_t i = 0; i < ports.size(); ++i, ++report)
    if (!values_part(expanded_text(report_taken(*report)), separator, parts.size(), expanded[i])) {
      line_set(ports[i], no_vlan, no_vlan);
      expanded[i] = expand(parts);
      set(format, parts_join(parts, separator));
    }
  return expanded;
}
