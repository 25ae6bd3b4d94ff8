#include "tools/pppoeiactl/format/commands.h"

#include "tools/pppoeiactl/agent/bridge_report.h"
#include "tools/pppoeiactl/agent/report.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace {

struct test_option {
  std::string_view word;
  std::string_view set;  // option of pppoeia_test_set()
  std::string_view run;  // option of pppoeia_test_run(), of formats
};
constexpr test_option test_options[] = {
    {"--port", "pppoeiaTestSetIntfId", ""},
    {"--vlan", "pppoeiaTestSetVlan", ""},
    {"--cvid", "pppoeiaTestSetCvid", ""},
    {"--onu", "pppoeiaTestSetOnu", ""},
    {"--gem", "pppoeiaTestSetVgem", ""},
    {"--tcont-type", "pppoeiaTestSetTContType", ""},
    {"--mac", "pppoeiaTestSetClntMac", ""},
    {"--circuit-id", "pppoeiaTestSetCustomCidStr", "pppoeiaTestRunCid"},
    {"--remote-id", "pppoeiaTestSetCustomRidStr", "pppoeiaTestRunRid"},
};

// The agent reads a text that is no number as 0, and takes what no setter takes.
void check_value(const test_option& option, const std::string& value)
{
  const std::string word(option.word);
  if (word == "--vlan" || word == "--cvid")
    vlan_word_parse(value, word.c_str());
  else if (word == "--mac")
    argument_check({api::kind::mac, option.word, 6, api::values::none}, value);
  else if (option.run.empty())
    number_word_parse(value, UINT32_MAX, word.c_str());
  else
    format_length_check(word, value);
}

// What one command line asks for.
struct plan {
  std::string debug;
  std::string mode = "test";
  std::vector<std::pair<const test_option*, std::string>> sets;
  std::vector<std::string_view> runs;
};

// One of two words that an option takes.
std::string choice_parse(const std::string& option, const std::string& value, const std::array<const char*, 2>& choices)
{
  if (value != choices[0] && value != choices[1])
    throw command_error(exit_usage, option + ": '" + value + "' is none of " + choices[0] + ", " + choices[1]);
  return value;
}

void option_take(plan& to, const std::string& word, const std::string& value)
{
  if (word == "--mode") {
    to.mode = choice_parse(word, value, {"test", "available"});
    return;
  }
  if (word == "--debug") {
    to.debug = choice_parse(word, value, {"on", "off"});
    return;
  }
  const auto* option = std::ranges::find(test_options, word, &test_option::word);
  check_value(*option, value);
  to.sets.emplace_back(option, value);
  if (!option->run.empty())
    to.runs.push_back(option->run);
}

plan plan_read(const given_words& given)
{
  plan wanted;
  for (const auto& [option, value] : given.options)
    option_take(wanted, option, value);
  if (wanted.runs.empty())
    wanted.runs.assign(std::begin(api::test_run_options), std::end(api::test_run_options));
  return wanted;
}

}  // namespace

void format_test_run(const context& context, const given_words& given)
{
  const plan wanted = plan_read(given);
  const std::string& bridge = given.arguments[0];
  std::string answers;
  if (!wanted.debug.empty())
    answers += report_of(context, row("pppoeia_test_debug"), {bridge, wanted.debug});
  for (const auto& [option, value] : wanted.sets)
    answers += report_of(context, row("pppoeia_test_set"), {bridge, std::string(option->set), value});
  for (const std::string_view run : wanted.runs)
    answers += report_of(context, row("pppoeia_test_run"), {bridge, std::string(run), wanted.mode});
  if (!context.json) {
    std::fwrite(answers.data(), 1, answers.size(), stdout);
    return;
  }
  report report;
  report.add_text("report", answers);
  report.print(context);
}
