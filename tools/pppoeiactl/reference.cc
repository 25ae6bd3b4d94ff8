#include "tools/pppoeiactl/reference.h"

#include "tools/pppoeiactl/command.h"

#include "pppoeia/api_table.h"

#include <string_view>

namespace {

using api::kind;

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
    return "u32";
  case kind::i32:
    return "i32";
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
    return "out u32";
  case kind::out_i32:
    return "out i32";
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
.SH OPTIONS
.TP
.BI \-\-socket " PATH"
Socket of the agent; /var/run/pppoeia_fe_main if not given.
.TP
.BI \-t " SECONDS"
How long to wait for an answer; 5 if not given.
.TP
.B \-\-json
Print JSON. Lists are always arrays. A text stands as valid UTF-8, bytes above 127 as the characters of the same
number, and beside it its bytes in hexadecimal under the same name with _hex behind it.
.TP
.BI \-batch " FILE"
Run the commands of a file, one a line, on an agent that has just started; \- is standard input. Words are split at blanks; quotes, backslash, \exNN and #
work as in a shell. The first error ends it and is reported with its line.
.TP
.B \-force
Go on after a failed line.
.TP
.BI \-\-watch " SECONDS"
Repeat the command at that pace until interrupted.
.TP
.BI \-\-wait " SECONDS"
Wait up to that long for an agent to serve, as after a start.
.SH COMMANDS
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
In a VLAN's place
.B none
(or 4095) stands for no particular VLAN.
.SH EXIT STATUS
0 done, 1 refused by the agent, 2 usage, 3 no agent, 4 time\-out, 5 no connection left at the agent,
7 something was found (check: warnings only; diff: differences), 8 not all is known (save).
.SH SEE ALSO
.BR kvbridged (8)
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
  return table;
}

std::string manual_page()
{
  std::string page = man_head;
  for (const command_help& command : command_helps())
    page += ".TP\n.B " + man_text(command.usage) + "\n" + man_text(command.summary) + ".\n";
  return page + man_tail;
}
