#include "tools/pppoeiactl/format_test.h"

#include "tools/pppoeiactl/operation_command.h"
#include "tools/pppoeiactl/report.h"

#include <algorithm>
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

// What one command line asks for.
struct plan {
  std::string debug;
  std::string mode = "test";
  std::vector<std::pair<const test_option*, std::string>> sets;
  std::vector<std::string_view> runs;
};

[[noreturn]] void usage_error()
{
  throw command_error(exit_usage, std::string("usage: ") + format_test_usage);
}

void option_take(plan& to, const std::string& word, const std::string& value)
{
  if (word == "--mode" && std::ranges::find(api::test_run_modes, value) != std::end(api::test_run_modes)) {
    to.mode = value;
    return;
  }
  if (word == "--debug" && (value == "on" || value == "off")) {
    to.debug = value;
    return;
  }
  const auto* option = std::ranges::find(test_options, word, &test_option::word);
  if (option == std::end(test_options))
    usage_error();
  // The agent reads a text that is no number as 0.
  if (option->run.empty() && word != "--mac")
    number_word_parse(value, UINT32_MAX, "number");
  to.sets.emplace_back(option, value);
  if (!option->run.empty())
    to.runs.push_back(option->run);
}

plan plan_read(const words& line)
{
  if (line.empty() || line.size() % 2 == 0)
    usage_error();
  plan wanted;
  for (size_t i = 1; i < line.size(); i += 2)
    option_take(wanted, line[i], line[i + 1]);
  if (wanted.runs.empty())
    wanted.runs.assign(std::begin(api::test_run_options), std::end(api::test_run_options));
  return wanted;
}

}  // namespace

void format_test_run(const context& context, const words& line)
{
  const plan wanted = plan_read(line);
  std::string answers;
  if (!wanted.debug.empty())
    answers += report_of(context, row("pppoeia_test_debug"), {line[0], wanted.debug});
  for (const auto& [option, value] : wanted.sets)
    answers += report_of(context, row("pppoeia_test_set"), {line[0], std::string(option->set), value});
  for (const std::string_view run : wanted.runs)
    answers += report_of(context, row("pppoeia_test_run"), {line[0], std::string(run), wanted.mode});
  if (!context.json) {
    std::fwrite(answers.data(), 1, answers.size(), stdout);
    return;
  }
  report report;
  report.add_text("report", answers);
  report.print(context);
}
