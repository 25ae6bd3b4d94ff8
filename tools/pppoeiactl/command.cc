#include "tools/pppoeiactl/command.h"

#include "tools/pppoeiactl/config/apply.h"
#include "tools/pppoeiactl/config/check.h"
#include "tools/pppoeiactl/config/initialise.h"
#include "tools/pppoeiactl/config/save.h"
#include "tools/pppoeiactl/format/explain.h"
#include "tools/pppoeiactl/format/format_check.h"
#include "tools/pppoeiactl/format/format_set.h"
#include "tools/pppoeiactl/format/format_test.h"
#include "tools/pppoeiactl/operation_command.h"
#include "tools/pppoeiactl/show/lines.h"
#include "tools/pppoeiactl/show/monitor.h"
#include "tools/pppoeiactl/show/show.h"
#include "tools/pppoeiactl/show/show_lines.h"
#include "tools/pppoeiactl/words/help.h"
#include "tools/pppoeiactl/words/line.h"

#include <algorithm>
#include <cstdio>

namespace {

// Commands beside the operations.
struct special {
  std::string_view command;
  std::string_view usage;
  std::string_view summary;
  command_function* run;
  std::string_view example;
  std::string_view arguments = {};
  std::string_view options = {};
  const api::operation* operation = nullptr;
};

constexpr special specials[] = {
    {"init", config::init_usage, "Initialise the agent, which must not be initialised", config::init_run, "init", "",
     config::init_options, &row("pppoeia_init")},
    {"node init", "node init [--force]", row("pppoeia_init").summary, config::init_run, "node init --force", "",
     config::init_options, &row("pppoeia_init")},
    {"fini", "fini", "Delete every bridge and end the agent's state", nullptr, "fini", "", "", &row("pppoeia_fini")},
    {"show", "show", "Tell everything that the getters tell", show_all_run, "show"},
    {"show all", "show all [BRIDGE...]", "The same, of some bridges", show_all_run, "show all br0", "bridge..."},
    {"show bridge", "show bridge [BRIDGE]", "Tell a bridge's settings, or all bridges'", show_bridge_run,
     "show bridge br0", "bridge"},
    {"show vlan", "show vlan BRIDGE", "Tell the VLANs that are enabled on a bridge", show_vlan_run, "show vlan br0",
     "bridge"},
    {"show port", "show port BRIDGE [PORT]", "Tell a port's settings, or of all ports the brief table", show_port_run,
     "show port br0 3", "bridge port"},
    {"show lines", show_lines_usage, "Tell of each line in one row who it is and what passed", show_lines_run,
     "show lines br0 side=subscriber --sort padi", "bridge...", show_lines_options},
    {"show port-vlan", "show port-vlan BRIDGE PORT", "Tell a port's VLAN entries", show_port_vlan_run,
     "show port-vlan br0 3", "bridge port"},
    {"bridge show", "bridge show [BRIDGE]", "Tell a bridge's settings, or all bridges'", show_bridge_run,
     "bridge show br0", "bridge"},
    {"vlan show", "vlan show BRIDGE", "Tell the VLANs that are enabled on a bridge", show_vlan_run, "vlan show br0",
     "bridge"},
    {"port show", "port show BRIDGE [PORT]", "Tell a port's settings, or of all ports the brief table", show_port_run,
     "port show br0 3", "bridge port"},
    {"port-vlan show", "port-vlan show BRIDGE PORT", "Tell a port's VLAN entries", show_port_vlan_run,
     "port-vlan show br0 3", "bridge port"},
    {"check", config::check_usage, "Look for what is wrong in a file, without an agent", config::check_run,
     "check card.conf", "file"},
    {"diff", config::diff_usage, "Print the commands that would make the running agent a file's card", config::diff_run,
     "diff card.conf", "file", config::diff_options},
    {"apply", config::apply_usage, "Make the running agent a file's card; touch nothing that is equal",
     config::apply_run, "apply --confirm 60 card.conf", "file", config::apply_options},
    {"confirm", config::confirm_usage, "Let what \"apply --confirm\" did stay", config::confirm_run, "confirm"},
    {"save", save_usage, "Print a file that makes this configuration anew", save_run, "save br0", "bridge...",
     save_options},
    {"lines", lines_usage, "Tell who is on which line, and how far each dial-in has come", lines_run,
     "lines --client 02:11:22:aa:bb:cc", "bridge port", lines_options},
    {"monitor", monitor_usage, "Tell of each frame as it passes: what was done with it, and why", monitor_run,
     "monitor br0 3 --dropped", "bridge port", monitor_options},
    {"explain", explain_usage, "Tell how a line's identifiers come about", explain_run, "explain br0 3 100",
     "bridge port vlan cvid"},
    {"format explain", format_explain_usage, "Tell how a format is read, and its result on a line", format_explain_run,
     "format explain '$PORT' br0 3 100", "format bridge port vlan cvid"},
    {"format check", format_check_usage, "Look for identifiers that will make trouble", format_check_run,
     "format check br0", "bridge"},
    {"format set", format_set_usage, "Set the formats of a port and VLAN, with the mode that they need", format_set_run,
     "format set br0 3 100 --circuit-id '$SYSNAME $PORT'", "bridge port vlan", format_set_options},
    {"format test", format_test_usage, "Set format test data and expand test formats with them", format_test_run,
     "format test br0 --circuit-id '$PORT' --port 3", "bridge", format_test_options},
    {"call", "call ID [ARG...]", "Call any operation by its function id", nullptr, "call 36 br0 3", "id"},
    {"help", "help [WORD...]", "Tell what commands do, which values they take, and their defaults", help_run,
     "help bridge state", "word..."},
};

command_row row_of(const special& own)
{
  return {std::string(own.command),
          std::string(own.usage),
          std::string(own.summary),
          std::string(own.example),
          own.operation,
          own.run,
          own.arguments,
          own.options};
}

command_row row_of(const api::operation& operation)
{
  command_row row;
  row.words = operation.command;
  row.usage = operation_usage(operation);
  row.summary = operation.summary;
  row.example = operation_example(operation);
  row.operation = &operation;
  row.options = operation_options(operation);
  return row;
}

std::vector<command_row> table_make()
{
  std::vector<command_row> rows;
  for (const special& own : specials)
    rows.push_back(row_of(own));
  for (const api::operation& operation : api::operations)
    if (std::ranges::find(specials, operation.command, &special::command) == std::end(specials))
      rows.push_back(row_of(operation));
  return rows;
}

command_words tree_make()
{
  command_words tree;
  const std::vector<command_row>& rows = command_table();
  for (size_t i = 0; i < rows.size(); ++i)
    tree.add(rows[i].words, i, rows[i].usage.size() > rows[i].words.size());
  return tree;
}

}  // namespace

const std::vector<command_row>& command_table()
{
  static const std::vector<command_row> rows = table_make();
  return rows;
}

const command_words& all_command_words()
{
  static const command_words tree = tree_make();
  return tree;
}

found_command command_find(const words& line)
{
  const command_words::found found = all_command_words().find(line);
  return {command_table()[found.row], {line.begin() + static_cast<std::ptrdiff_t>(found.length), line.end()}};
}

void command_run(const context& context, const words& line)
{
  if (line.empty())
    return;
  if (line.back() == "--help")
    return help_run(context, {{line.begin(), line.end() - 1}, {}});
  const auto [row, rest] = command_find(line);
  if (row.run)
    row.run(context, given_words_parse(rest, row.usage, row.options));
  else if (row.operation)
    operation_run(context, *row.operation, rest);
  else
    call_run(context, rest);
}

words command_forced(words line)
{
  if (line_split(command_find(line).row.options) == words{"--force"})
    line.emplace_back("--force");
  return line;
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

std::string command_list()
{
  std::string list = "Commands:\n";
  for (const command_row& row : command_table())
    list += "  " + row.usage + "\n      " + row.summary + "\n";
  return list;
}
