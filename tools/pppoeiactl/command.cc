#include "tools/pppoeiactl/command.h"

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
  std::string_view command;
  std::string_view usage;
  std::string_view summary;
  command_function* run;
  std::string_view arguments = {};
  std::string_view options = {};
};

void init_run(const context& context, const given_words& given)
{
  operation_run(context, row("pppoeia_init"), given.arguments);
}

void fini_run(const context& context, const given_words& given)
{
  operation_run(context, row("pppoeia_fini"), given.arguments);
}

constexpr special specials[] = {
    {"init", "init", "Initialise the agent", init_run},
    {"fini", "fini", "Delete every bridge and end the agent's state", fini_run},
    {"show", "show", "Tell everything that the getters tell", show_all_run},
    {"show all", "show all [BRIDGE...]", "The same, of some bridges", show_all_run, "bridge..."},
    {"show bridge", "show bridge [BRIDGE]", "Tell a bridge's settings, or all bridges'", show_bridge_run, "bridge"},
    {"show vlan", "show vlan BRIDGE", "Tell the VLANs that are enabled on a bridge", show_vlan_run, "bridge"},
    {"show port", "show port BRIDGE [PORT]", "Tell a port's settings, or all ports'", show_port_run, "bridge port"},
    {"show port-vlan", "show port-vlan BRIDGE PORT", "Tell a port's VLAN entries", show_port_vlan_run, "bridge port"},
    {"save", save_usage, "Print a batch file that makes this configuration anew", save_run, "bridge...", save_options},
    {"explain", explain_usage, "Tell how a line's identifiers come about", explain_run, "bridge port vlan"},
    {"format explain", format_explain_usage, "Tell how a format is read, and its result on a line", format_explain_run,
     "format bridge port vlan cvid"},
    {"format check", format_check_usage, "Look for identifiers that will make trouble", format_check_run, "bridge"},
    {"format test", format_test_usage, "Set format test data and expand test formats with them", format_test_run,
     "bridge", format_test_options},
    {"call", "call ID [ARG...]", "Call any operation by its function id", nullptr},
};

std::vector<command_row> table_make()
{
  std::vector<command_row> rows;
  for (const special& own : specials)
    rows.push_back({std::string(own.command), std::string(own.usage), std::string(own.summary), nullptr, own.run,
                    own.arguments, own.options});
  for (const api::operation& operation : api::operations)
    rows.push_back({std::string(operation.command),
                    operation_usage(operation),
                    std::string(operation.summary),
                    &operation,
                    nullptr,
                    {},
                    {}});
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

void command_run(const context& context, const words& line)
{
  if (line.empty())
    return;
  const command_words::found found = all_command_words().find(line);
  const command_row& row = command_table()[found.row];
  const words rest(line.begin() + static_cast<std::ptrdiff_t>(found.length), line.end());
  if (row.operation)
    operation_run(context, *row.operation, rest);
  else if (row.run)
    row.run(context, given_words_parse(rest, row.usage, row.options));
  else
    call_run(context, rest);
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

std::string command_list()
{
  std::string list = "Commands:\n";
  for (const command_row& row : command_table())
    list += "  " + row.usage + "\n      " + row.summary + "\n";
  return list;
}
