#include "tools/pppoeiactl/command.h"

#include "tools/pppoeiactl/config/apply.h"
#include "tools/pppoeiactl/config/check.h"
#include "tools/pppoeiactl/config/initialise.h"
#include "tools/pppoeiactl/explain.h"
#include "tools/pppoeiactl/format_check.h"
#include "tools/pppoeiactl/format_test.h"
#include "tools/pppoeiactl/line.h"
#include "tools/pppoeiactl/operation_command.h"
#include "tools/pppoeiactl/save.h"
#include "tools/pppoeiactl/show.h"

#include <cstdio>

namespace {

// Commands beside the operations.
struct special {
  std::string_view command;  // one word or two
  std::string_view usage;
  std::string_view summary;
  void (*run)(const context& context, const words& rest);
};

void fini_run(const context& context, const words& rest)
{
  operation_run(context, row("pppoeia_fini"), rest);
}

constexpr special specials[] = {
    {"init", config::init_usage, "Initialise the agent, which must not be initialised", config::init_run},
    {"node init", "node init [--force]", "The same", config::init_run},
    {"fini", "fini", "Delete every bridge and end the agent's state", fini_run},
    {"show", show_usage, "Gather what the getters tell", show_run},
    {"check", config::check_usage, "Look for what is wrong in a file, without an agent", config::check_run},
    {"diff", config::diff_usage, "Print the commands that would make the running agent a file's card",
     config::diff_run},
    {"apply", config::apply_usage, "Make the running agent a file's card; touch nothing that is equal",
     config::apply_run},
    {"confirm", config::confirm_usage, "Let what \"apply --confirm\" did stay", config::confirm_run},
    {"save", save_usage, "Print a file that makes this configuration anew", save_run},
    {"explain", explain_usage, "Tell how a line's identifiers come about", explain_run},
    {"format explain", format_explain_usage, "Tell how a format is read, and its result on a line", format_explain_run},
    {"format check", format_check_usage, "Look for identifiers that will make trouble", format_check_run},
    {"format test", format_test_usage, "Set format test data and expand test formats with them", format_test_run},
    {"call", "call ID ARG...", "Call any operation by its function id", call_run},
};

}  // namespace

void command_run(const context& context, const words& line)
{
  if (line.empty())
    return;
  for (const special& command : specials) {
    const bool two_words = command.command.find(' ') != std::string_view::npos;
    const std::string begin = two_words && line.size() > 1 ? line[0] + " " + line[1] : line[0];
    if (begin == command.command)
      return command.run(context, words(line.begin() + (two_words ? 2 : 1), line.end()));
  }
  words rest;
  const api::operation* operation = operation_of(line, rest);
  if (!operation)
    throw command_error(exit_usage, "no such command: " + line[0]);
  operation_run(context, *operation, rest);
}

exit_status batch_run(const context& context, std::istream& lines, const std::string& name, bool go_on)
{
  exit_status first = exit_done;
  size_t number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    try {
      command_run(context, line_split(line));
    } catch (const command_error& error) {
      std::fprintf(stderr, "%s:%zu: %s\n", name.c_str(), number, error.what());
      first = first == exit_done ? error.status() : first;
      if (!go_on)
        break;
    }
  }
  return first;
}

std::vector<command_help> command_helps()
{
  std::vector<command_help> helps;
  for (const special& command : specials)
    helps.push_back({std::string(command.usage), std::string(command.summary)});
  for (const api::operation& operation : api::operations)
    helps.push_back({operation_usage(operation), std::string(operation.summary)});
  return helps;
}

std::string command_list()
{
  std::string list = "Commands:\n";
  for (const command_help& help : command_helps())
    list += "  " + help.usage + "\n      " + help.summary + "\n";
  return list;
}
