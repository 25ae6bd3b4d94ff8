#include "tools/pppoeiactl/commands.h"

#include "tools/pppoeiactl/config/commands.h"
#include "tools/pppoeiactl/format/commands.h"
#include "tools/pppoeiactl/show/commands.h"
#include "tools/pppoeiactl/words/commands.h"
#include "tools/pppoeiactl/words/help.h"
#include "tools/pppoeiactl/words/line.h"

#include <cstdio>

namespace {

void help_run(const context&, const given_words& given)
{
  std::fputs(help_text(given.arguments).c_str(), stdout);
}

struct command_function {
  runner which;
  void (*run)(const context& context, const given_words& given);
};
constexpr command_function functions[] = {
    {runner::init, init_run},
    {runner::show_all, show_all_run},
    {runner::show_bridge, show_bridge_run},
    {runner::show_vlan, show_vlan_run},
    {runner::show_port, show_port_run},
    {runner::show_lines, show_lines_run},
    {runner::show_port_vlan, show_port_vlan_run},
    {runner::check, config::check_run},
    {runner::diff, config::diff_run},
    {runner::apply, config::apply_run},
    {runner::confirm, config::confirm_run},
    {runner::save, config::save_run},
    {runner::lines, lines_run},
    {runner::monitor, monitor_run},
    {runner::explain, explain_run},
    {runner::format_explain, format_explain_run},
    {runner::format_check, format_check_run},
    {runner::format_set, format_set_run},
    {runner::format_test, format_test_run},
    {runner::help, help_run},
};

constexpr size_t first_function = static_cast<size_t>(runner::call) + 1;

constexpr bool functions_stand_in_order()
{
  for (size_t i = 0; i < std::size(functions); ++i)
    if (static_cast<size_t>(functions[i].which) != first_function + i)
      return false;
  return functions[std::size(functions) - 1].which == runner::help;
}
static_assert(functions_stand_in_order(), "each command has its function");

}  // namespace

void command_run(const context& context, const words& line)
{
  if (line.empty())
    return;
  if (line.back() == "--help")
    return help_run(context, {{line.begin(), line.end() - 1}, {}});
  const found_command found = command_find(line);
  switch (found.row.run) {
  case runner::operation:
    return operation_run(context, *found.row.operation, found.rest);
  case runner::call:
    return call_run(context, found.rest);
  default:
    return functions[static_cast<size_t>(found.row.run) - first_function].run(context, given_to(found));
  }
}

exit_status batch_run(const context& context, std::istream& lines, const std::string& name, bool go_on)
{
  exit_status first = exit_done;
  size_t number = 0;
  struct context here = context;
  here.warn = [&](const std::string& text) {
    std::fprintf(stderr, "%s:%zu: warning: %s\n", name.c_str(), number, text.c_str());
  };
  if (!context.warn)
    here.warn = {};
  for (std::string line; std::getline(lines, line);) {
    ++number;
    try {
      command_run(here, line_split(line));
    } catch (const command_error& error) {
      std::fprintf(stderr, "%s:%zu: %s\n", name.c_str(), number, error.what());
      first = first == exit_done ? error.status() : first;
      if (!go_on)
        break;
    }
  }
  return first;
}
