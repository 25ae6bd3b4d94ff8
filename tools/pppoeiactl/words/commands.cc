#include "tools/pppoeiactl/words/commands.h"

#include "tools/pppoeiactl/words/line.h"
#include "tools/pppoeiactl/words/operation_words.h"

#include <algorithm>

namespace {

// Commands beside the operations.
struct special {
  std::string_view command;
  std::string_view usage;
  std::string_view summary;
  runner run;
  std::string_view example;
  std::string_view arguments = {};
  std::string_view options = {};
  const api::operation* operation = nullptr;
};

constexpr special specials[] = {
    {"init", "init [--force]", "Initialise the agent, which must not be initialised", runner::init, "init", "",
     "--force", &row("pppoeia_init")},
    {"node init", "node init [--force]", row("pppoeia_init").summary, runner::init, "node init --force", "", "--force",
     &row("pppoeia_init")},
    {"fini", "fini", "Delete every bridge and end the agent's state", runner::operation, "fini", "", "",
     &row("pppoeia_fini")},
    {"show", "show", "Tell everything that the getters tell", runner::show_all, "show"},
    {"show all", "show all [BRIDGE...]", "The same, of some bridges", runner::show_all, "show all br0", "bridge..."},
    {"show bridge", "show bridge [BRIDGE]", "Tell a bridge's settings, or all bridges'", runner::show_bridge,
     "show bridge br0", "bridge"},
    {"show vlan", "show vlan BRIDGE", "Tell the VLANs that are enabled on a bridge", runner::show_vlan, "show vlan br0",
     "bridge"},
    {"show port", "show port BRIDGE [PORT]", "Tell a port's settings, or of all ports the brief table",
     runner::show_port, "show port br0 3", "bridge port"},
    {"show lines", "show lines [BRIDGE...] [COLUMN=VALUE...] [--columns COLUMN,...] [--sort COLUMN] [-b]",
     "Tell of each line in one row who it is and what passed", runner::show_lines,
     "show lines br0 side=subscriber --sort padi", "bridge...", "--columns= --sort= -b"},
    {"show port-vlan", "show port-vlan BRIDGE PORT", "Tell a port's VLAN entries", runner::show_port_vlan,
     "show port-vlan br0 3", "bridge port"},
    {"bridge show", "bridge show [BRIDGE]", "Tell a bridge's settings, or all bridges'", runner::show_bridge,
     "bridge show br0", "bridge"},
    {"vlan show", "vlan show BRIDGE", "Tell the VLANs that are enabled on a bridge", runner::show_vlan, "vlan show br0",
     "bridge"},
    {"port show", "port show BRIDGE [PORT]", "Tell a port's settings, or of all ports the brief table",
     runner::show_port, "port show br0 3", "bridge port"},
    {"port-vlan show", "port-vlan show BRIDGE PORT", "Tell a port's VLAN entries", runner::show_port_vlan,
     "port-vlan show br0 3", "bridge port"},
    {"check", "check FILE", "Look for what is wrong in a file, without an agent", runner::check, "check card.conf",
     "file"},
    {"diff", "diff [--keep] [--renew] [--no-trial] FILE",
     "Print the commands that would make the running agent a file's card", runner::diff, "diff card.conf", "file",
     "--keep --renew --no-trial"},
    {"apply", "apply [--dry-run] [--confirm SECONDS] [--keep] [--renew] [--no-trial] FILE",
     "Make the running agent a file's card; touch nothing that is equal", runner::apply, "apply --confirm 60 card.conf",
     "file", "--dry-run --confirm= --keep --renew --no-trial"},
    {"confirm", "confirm", "Let what \"apply --confirm\" did stay", runner::confirm, "confirm"},
    {"save", "save [--no-trial] [BRIDGE...]", "Print a file that makes this configuration anew", runner::save,
     "save br0", "bridge...", "--no-trial"},
    {"lines", "lines [--client MAC] [BRIDGE [PORT]]", "Tell who is on which line, and how far each dial-in has come",
     runner::lines, "lines --client 02:11:22:aa:bb:cc", "bridge port", "--client="},
    {"monitor", "monitor [--code CODE] [--client MAC] [--dropped] [--count N] [--pcap FILE] [BRIDGE [PORT]]",
     "Tell of each frame as it passes: what was done with it, and why", runner::monitor, "monitor br0 3 --dropped",
     "bridge port", "--code= --client= --dropped --count= --pcap="},
    {"explain", "explain BRIDGE PORT VLAN [CVID]", "Tell how a line's identifiers come about", runner::explain,
     "explain br0 3 100", "bridge port vlan cvid"},
    {"format explain", "format explain FORMAT [BRIDGE PORT VLAN [CVID]]",
     "Tell how a format is read, and its result on a line", runner::format_explain, "format explain '$PORT' br0 3 100",
     "format bridge port vlan cvid"},
    {"format check", "format check BRIDGE", "Look for identifiers that will make trouble", runner::format_check,
     "format check br0", "bridge"},
    {"format set", "format set BRIDGE PORT VLAN [--circuit-id FORMAT] [--remote-id FORMAT] [--mode MODE]",
     "Set the formats of a port and VLAN, with the mode that they need", runner::format_set,
     "format set br0 3 100 --circuit-id '$SYSNAME $PORT'", "bridge port vlan", "--circuit-id= --remote-id= --mode="},
    {"format test",
     "format test BRIDGE [--circuit-id FORMAT] [--remote-id FORMAT] [--port N] [--vlan N] [--cvid N] [--onu N] "
     "[--gem N] [--tcont-type N] [--mac MAC] [--mode test|available] [--debug on|off]",
     "Set format test data and expand test formats with them", runner::format_test,
     "format test br0 --circuit-id '$PORT' --port 3", "bridge",
     "--circuit-id= --remote-id= --port= --vlan= --cvid= --onu= --gem= --tcont-type= --mac= --mode= --debug="},
    {"call", "call ID [ARG...]", "Call any operation by its function id", runner::call, "call 36 br0 3", "id"},
    {"help", "help [WORD...]", "Tell what commands do, which values they take, and their defaults", runner::help,
     "help bridge state", "word..."},
};

constexpr program_option own_options[] = {
    {"--socket", "", "--socket", "PATH", "Socket of the agent",
     R"(Socket of the agent; /var/run/pppoeia_fe_main if not given.
)"},
    {"-t", "", "-t", "SECONDS", "Seconds to wait for an answer",
     R"(How long to wait for an answer; 5 if not given.
)"},
    {"--json", "-json", "--json", "", "Print JSON",
     R"(Print JSON, always of the same shape: docs/pppoeiactl.schema.json describes it, and "version" goes up when a key gets
another meaning. Counters are frames, sizes bytes. Lists are always arrays. A text stands as valid UTF-8, bytes above 127 as the characters of the same
number, and beside it its bytes in hexadecimal under the same name with _hex behind it.
)"},
    {"--batch", "-batch", "-batch", "FILE", "Run the commands of a file, one a line (-: standard input)",
     R"(Run the commands of a file, one a line, on an agent that has just started; \- is standard input. Words are split at blanks; quotes, backslash, \exNN and #
work as in a shell. The first error ends it and is reported with its line.
)"},
    {"--force", "-force", "-force", "", "Go on after a failed line of a batch; no warnings",
     R"(Go on after a failed line of a batch; do not warn of values that the agent takes though they mean nothing.
)"},
    {"--watch", "", "--watch", "SECONDS", "Repeat the command at that pace",
     R"(Repeat the command at that pace until interrupted. A terminal is cleared for each round, which begins with the time;
counters that moved are followed by what they changed a second. With
.B \-\-json
each round is one line.
)"},
    {"--wait", "", "--wait", "SECONDS", "Wait up to that long for an agent to serve",
     R"(Wait up to that long for an agent to serve, as after a start.
)"},
    {"--help", "-h", "--help", "", "Tell about the program; behind a command's words, about these",
     R"(Behind a command's words, about these: what they do, which values they take, their defaults, examples.
)"},
    {"--version", "", "--version", "", "Tell the version",
     R"(Tell the version.
)"},
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

given_words given_to(const found_command& found)
{
  return given_words_parse(found.rest, found.row.usage, found.row.options);
}

words command_forced(words line)
{
  if (line_split(command_find(line).row.options) == words{"--force"})
    line.emplace_back("--force");
  return line;
}

std::span<const program_option> program_options()
{
  return own_options;
}

const program_option* program_option_find(std::string_view word)
{
  const auto is = [&](std::string_view name, const program_option& option) {
    return !name.empty() && (word == name || (!option.value.empty() && word.starts_with(std::string(name) + "=")));
  };
  for (const program_option& option : own_options)
    if (is(option.name, option))
      return &option;
  return nullptr;
}
