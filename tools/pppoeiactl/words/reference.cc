#include "tools/pppoeiactl/words/help.h"

#include "tools/pppoeiactl/words/commands.h"

#include "pppoeia/api/table.h"

#include <algorithm>
#include <string_view>

namespace {

using api::kind;

struct value_set {
  api::values set;
  std::string_view name;
};
constexpr value_set value_sets[] = {
    {api::values::on_off, "on-off"},     {api::values::port_state, "side"}, {api::values::trust, "trust"},
    {api::values::vsa_mode, "vsa-mode"}, {api::values::cid_mode, "mode"},   {api::values::log_level, "level"},
};

// Behind the kind of an argument: which of the sets its numbers are of.
std::string set_text(const api::argument& argument)
{
  const auto* of = std::ranges::find(value_sets, argument.words, &value_set::set);
  return of == std::end(value_sets) ? "" : ": " + std::string(of->name);
}

std::string kind_text(const api::argument& argument)
{
  const std::string size = std::to_string(argument.size);
  switch (argument.what) {
  case kind::name:
  case kind::text:
    return "text, " + size + " characters";
  case kind::u16:
    return "u16";
  case kind::u32:
    return "u32" + set_text(argument);
  case kind::i32:
    return "i32" + set_text(argument);
  case kind::mac:
    return "6 bytes";
  case kind::port_info:
  case kind::name_update:
    return "record, " + size + " bytes";
  case kind::tty:
    return "device path";
  case kind::unused:
    return "any";
  case kind::out_text:
    return "out text, " + size + " bytes";
  case kind::out_u32:
    return "out u32" + set_text(argument);
  case kind::out_i32:
    return "out i32" + set_text(argument);
  case kind::out_stats:
  case kind::out_entry:
    return "out record, " + size + " bytes";
  }
  return {};
}

// Man macros: a line must not begin with a dot, and a backslash or hyphen is written out.
std::string man_text(std::string_view text)
{
  std::string escaped;
  for (const char c : text) {
    if (c == '\\')
      escaped += "\\e";
    else if (c == '-')
      escaped += "\\-";
    else
      escaped += c;
  }
  return escaped;
}

// Values, default and example.
std::string man_facts(const command_row& command)
{
  const command_facts facts = command_facts_of(command);
  std::string text;
  for (const auto& [name, what] : facts.values)
    if (name != "BRIDGE" && name != "PORT")
      text += ".br\n" + man_text(name) + ": " + man_text(what) + ".\n";
  if (!facts.default_value.empty())
    text += ".br\nDefault: " + man_text(facts.default_value) + ".\n";
  return text + ".br\nExample: pppoeiactl " + man_text(example_of(command)) + "\n";
}

std::string man_option(const program_option& option)
{
  const std::string shown = man_text(option.shown);
  const std::string head =
      option.value.empty() ? ".B " + shown : ".BI " + shown + " \" " + std::string(option.value) + "\"";
  return ".TP\n" + head + "\n" + std::string(option.manual);
}

constexpr char man_head[] = R"(.TH PPPOEIACTL 8
.SH NAME
pppoeiactl \- configure and query the PPPoE Intermediate Agent
.SH SYNOPSIS
.B pppoeiactl
.RI [ options ] " command" " " [ argument ...]
.br
.B pppoeiactl \-batch
.I FILE
.SH DESCRIPTION
Calls one operation of the running agent and prints what it tells. Numbers may be decimal or begin with 0x; where a
number has a name (states, trust, modes, log levels), the name is taken and shown too.
.PP
Options may stand before and behind a command's words. Behind
.B \-\-
nothing is taken for an option.
.PP
On a terminal, without a command, commands are read line by line, with history and completion, until "exit".
.SH OPTIONS
)";

constexpr char man_commands[] = R"(.SH COMMANDS
Words of commands may be cut short as long as they are clear:
.B po tr s
is
.BR "port trust set" .
.PP
)";

constexpr char man_tail[] = R"(.SH NOTES
No operation lists bridges. Commands that want them all look under the names of this host's kernel bridges and network
devices, and under br0 to br99.
.PP
.BR explain ", " "format check" " and, on a line, " "format explain"
expand formats through the agent's test operations. Their test data are put back afterwards; somebody who tries formats
at the same moment gets in the way.
.PP
.BR save ", " diff " and " apply
give each port an entry for a VLAN above 4095 for a moment, which no frame can have, to read what only macros tell.
.B \-\-no\-trial
does without and reads less.
.SH CARDS
A file of commands, as for
.BR \-batch ,
stands for the card that they make of an agent that has just started.
.B check
looks for mistakes in it,
.B diff
prints the commands that would make the running agent this card, and
.B apply
runs them: only what differs, in an order that opens no window, removals last. What the file does not name has its
default; ports, VLANs, entries and bridges that it does not name go, unless
.B \-\-keep
is given. A file with a mistake changes nothing; what was done before a refusal is undone.
.PP
.B apply \-\-confirm
.I SECONDS
goes back by itself unless
.B confirm
follows. A process of its own waits for that. It outlives the terminal; when it is killed itself, the new card stays.
.PP
What no operation tells (a port's kind and those parts of its location that its type does not use, a bridge's number of
slots) is noted in
.IR SOCKET .known
when it is set, for that run of the agent. What is not known
.B save
names, and ends with 8;
.B apply
takes it to be as the file says, or with
.B \-\-renew
adds such ports again.
.PP
.B init
refuses on an agent that is initialised;
.B init \-\-force
leaves its bridges running out of reach.
.PP
.B explain
tells the identifiers that a frame of that port and VLAN will get, by the rules; what may differ from frame to frame
(CVID, the second tag; CLNT_MAC, the client's address) is named.
.BR "port\-vlan circuit\-id get" ,
which the agent answers, has the VLAN of the bridge's last frame in mode ethernet, and its second tag in formats.
.PP
.B show lines
colours lines that dropped frames, on a terminal and unless NO_COLOR is set; there it cuts texts to the terminal's width.
.PP
In a VLAN's place
.B none
(or 4095) stands for no particular VLAN.
.PP
.BR lines " and " monitor
read the agent's status socket,
.I /run/pppoeia/status
or the path in the environment variable PPPOEIA_STATUS_SOCKET.
.B monitor \-\-pcap
writes a capture file (pcapng; \- is standard output) with each frame as it came and as it left, and what was done as a
comment. A monitor that is slower than the frames tells on standard error how many it has lost.
)";

}  // namespace

std::string operations_table()
{
  std::string table = "| id | operation | arguments in order | command |\n|---|---|---|---|\n";
  for (const api::operation& operation : api::operations) {
    std::string arguments;
    for (const api::argument& argument : operation.arguments())
      arguments += (arguments.empty() ? "" : ", ") + std::string(argument.name) + " (" + kind_text(argument) + ")";
    table += "| " + std::to_string(operation.id) + " | `" + std::string(operation.name) + "` | " +
             (arguments.empty() ? "none" : arguments) + " | `" + std::string(operation.command) + "` |\n";
  }
  table += "\n| values | numbers |\n|---|---|\n";
  for (const value_set& set : value_sets) {
    std::string numbers;
    for (const api::value_name& name : api::names_of(set.set))
      numbers += (numbers.empty() ? "" : ", ") + std::to_string(name.value) + " " + std::string(name.word);
    table += "| " + std::string(set.name) + " | " + numbers + " |\n";
  }
  return table;
}

std::string manual_page()
{
  std::string page = man_head;
  for (const program_option& option : program_options())
    page += man_option(option);
  page += man_commands;
  for (const command_row& command : command_table())
    page += ".TP\n.B " + man_text(command.usage) + "\n" + man_text(command.summary) + ".\n" + man_facts(command);
  return page + man_tail + ".SH EXIT STATUS\n" + man_text(exit_statuses) + "\n.SH SEE ALSO\n.BR kvbridged (8)\n";
}
