#include "tools/pppoeiactl/words/help.h"

#include "tools/pppoeiactl/words/line.h"
#include "tools/pppoeiactl/words/operation_words.h"

#include <algorithm>

namespace {

using api::kind;

// Arguments by their names in the table of operations: one that stands for the rest in examples, and what it is.
struct argument_note {
  std::string_view name;
  std::string_view sample;
  std::string_view what;  // empty: its words or its range say it
};
constexpr argument_note argument_notes[] = {
    {"bridge", "br0", "a bridge's name, at most 10 characters"},
    {"ports", "65", "slots for ports 1 to one less, at most 65536"},
    {"max-pdu", "1492", "bytes, Ethernet header included; at most the MTU of the bridge's device"},
    {"port", "3", "a port's id, 1 to one less than the bridge's slots"},
    {"vlan", "100", "0 to 4095; 0 is what untagged frames have"},
    {"device", "line3", "the line's interface; more than 16 characters are cut"},
    {"port-name", "0/3", "$INTF; more than 14 characters are cut"},
    {"vendor", "ACCESSNODE", ""},
    {"shelf-id", "1", ""},
    {"remote-id", "C-4711", ""},
    {"description", "'Flat 5'", "more than 64 characters are cut"},
    {"cpe-serial", "SN0042", "more than 12 characters are cut"},
    {"cpe-mac", "02:aa:bb:00:00:07", "a MAC address"},
    {"format", "'$SYSNAME eth $INTF:$VLAN'", "text and macros, at most 128 characters; of a VLAN entry 127"},
    {"sysname", "AN12", ""},
    {"location", "'Main Street'", ""},
    {"contact", "noc@example.net", ""},
    {"vlan-name", "internet", ""},
    {"chassis-id", "1", ""},
    {"vpi", "8", ""},
    {"vci", "35", ""},
    {"parent", "1", "the port that this one lies on; 0: none"},
    {"port-selector", "0", "one port; 0: all"},
    {"event", "0", "is not looked at"},
    {"cvid", "5", "the second tag's VLAN; none: there is none"},
    {"option", "pppoeiaTestSetVlan", "of the test data"},
    {"value", "7", "a text"},
    {"id", "36", "0 to 88: the operation's number"},
    {"word", "bridge", "of a command"},
    {"file", "card.conf", "commands as of a batch; -: standard input"},
};

// Words of sets whose last word is no good example.
constexpr std::string_view good_samples[] = {"untrusted", "custom",  "subscriber", "remove",
                                             "on",        "warning", "available"};

struct option_note {
  std::string_view name;
  std::string_view what;
};
constexpr option_note option_notes[] = {
    {"--columns", "bridge, port, name, side, trust, state, vlans, circuit-id, remote-id, padi, padr, pado, pads, padt, "
                  "dropped, unknown, malformed, unchanged; in COLUMN=VALUE (is), != (is not) and ~ (has in it) too"},
    {"--sort", "a column"},
    {"-b", "brief: without VLANs, identifiers and counters"},
    {"--type", "eth, atm, onu, gem or another text, at most 10 characters: which numbers of the location count"},
    {"--kind", "1 and 5: an uplink, which skips the VLAN check"},
    {"--parent", "the port that this one lies on"},
    {"--location", "panel-kind, panel, onu, gem, pvc"},
    {"--mode",
     "of format set: unset, ethernet, atm, custom; custom where a Circuit ID format is given. Of format test: test, "
     "available"},
    {"--circuit-id", "a format, at most 128 characters; of a VLAN entry 127"},
    {"--remote-id", "likewise"},
    {"--force", "of init: an agent that is initialised too, whose bridges go on out of reach"},
    {"--dry-run", "changes nothing, prints the commands"},
    {"--confirm", "SECONDS, 0 to 86400: goes back after that time unless \"confirm\" follows"},
    {"--keep", "takes nothing away that the file does not name"},
    {"--renew", "removes and adds ports again of which not all is known"},
    {"--no-trial", "leaves the test operations alone, and knows less"},
    {"--client", "a MAC address: only of this client"},
    {"--code", "PADI, PADO, PADR, PADS or PADT: only such frames"},
    {"--dropped", "only frames that were dropped"},
    {"--count", "ends after that many frames"},
    {"--pcap", "a capture file to write; -: standard output"},
    {"--tty", "a device that the agent writes to instead of this terminal"},
};

struct default_note {
  std::string_view setting;
  std::string_view value;
};
constexpr default_note default_notes[] = {
    {"log level", "info"},
    {"node debug-state", "off"},
    {"bridge state", "on"},
    {"bridge max-pdu", "1500"},
    {"bridge vsa-mode", "remove"},
    {"bridge insert-circuit-id", "on"},
    {"bridge insert-remote-id", "on"},
    {"bridge vendor", "VELTRONA"},
    {"bridge shelf-id", "''"},
    {"bridge circuit-id-cvlan", "off"},
    {"bridge chassis-id", "99"},
    {"bridge vlan", "off"},
    {"format circuit-id", "''"},
    {"format remote-id", "''"},
    {"port state", "disabled"},
    {"port trust", "trusted"},
    {"port circuit-id-mode", "ethernet"},
    {"port remote-id", "''"},
    {"port parent", "0"},
    {"port-vlan circuit-id-mode", "unset"},
    {"port-vlan circuit-id-format", "''"},
    {"port-vlan remote-id-format", "''"},
};

std::string upper(std::string_view text)
{
  std::string capitals(text);
  for (char& c : capitals)
    c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  return capitals;
}

words words_of(const api::argument& argument)
{
  words list;
  for (const api::value_name& name : api::names_of(argument.words))
    list.emplace_back(name.word);
  if (argument.words == api::values::test_option)
    list.assign(std::begin(api::test_set_options), std::end(api::test_set_options));
  if (argument.words == api::values::test_run && argument.name == "option")
    list.assign(std::begin(api::test_run_options), std::end(api::test_run_options));
  if (argument.words == api::values::test_run && argument.name == "mode")
    list.assign(std::begin(api::test_run_modes), std::end(api::test_run_modes));
  return list;
}

const argument_note* note_of(std::string_view name)
{
  const auto* note = std::ranges::find(argument_notes, name, &argument_note::name);
  return note == std::end(argument_notes) ? nullptr : note;
}

std::string what_it_takes(const api::argument& argument)
{
  if (const words list = words_of(argument); !list.empty())
    return joined(list);
  const argument_note* note = note_of(argument.name);
  if (note && !note->what.empty())
    return std::string(note->what);
  return argument.what == kind::text ? "a text, at most " + std::to_string(argument.size) + " characters" : "a number";
}

std::string sample(const api::argument& argument)
{
  const words list = words_of(argument);
  for (const std::string& word : list)
    if (std::ranges::find(good_samples, word) != std::end(good_samples))
      return word;
  if (!list.empty())
    return list.front();
  const argument_note* note = note_of(argument.name);
  return note ? std::string(note->sample) : "1";
}

void add_options(command_facts& facts, std::string_view options)
{
  for (std::string option : line_split(options)) {
    if (option.ends_with('='))
      option.pop_back();
    const auto* note = std::ranges::find(option_notes, option, &option_note::name);
    if (note != std::end(option_notes))
      facts.values.emplace_back(option, note->what);
  }
}

command_facts facts_of(const api::operation& operation, std::string_view options)
{
  command_facts facts;
  for (const api::argument& argument : operation.arguments())
    if (is_written(argument))
      facts.values.emplace_back(upper(argument.name), what_it_takes(argument));
  add_options(facts, options);
  const std::string_view setting = operation.command.substr(0, operation.command.rfind(' '));
  const auto* note = std::ranges::find(default_notes, setting, &default_note::setting);
  if (note != std::end(default_notes) && operation.command.ends_with(" set"))
    facts.default_value = note->value;
  return facts;
}

bool begins_with(const words& command, const words& begin)
{
  return begin.size() <= command.size() && std::equal(begin.begin(), begin.end(), command.begin());
}

std::string entry(const command_row& row)
{
  const command_facts facts = command_facts_of(row);
  std::string text = row.usage + "\n    " + row.summary + "\n";
  for (const auto& [name, what] : facts.values)
    if (name != "BRIDGE" && name != "PORT")
      text += "      " + name + ": " + what + "\n";
  if (!facts.default_value.empty())
    text += "    Default: " + facts.default_value + "\n";
  return text + "    Example: pppoeiactl " + example_of(row) + "\n";
}

std::string overview()
{
  std::string text = "Commands are made of words, which may be cut short as long as they are clear:\n\n";
  for (const std::string& word : all_command_words().behind({})) {
    text += "  " + word;
    std::string more = joined(all_command_words().behind({word}));
    text += (more.empty() ? "" : std::string(word.size() < 10 ? 10 - word.size() : 1, ' ') + more) + "\n";
  }
  return text + "\n'help WORD...' tells what they do, which values they take, and their defaults.\n";
}

}  // namespace

command_facts command_facts_of(const command_row& row)
{
  if (row.operation)
    return facts_of(*row.operation, row.options);
  command_facts facts;
  for (const std::string& argument : line_split(row.arguments))
    if (const argument_note* note = note_of(argument.substr(0, argument.find('.'))))
      facts.values.emplace_back(upper(note->name), note->what);
  add_options(facts, row.options);
  return facts;
}

std::string example_of(const command_row& row)
{
  if (!row.example.empty())
    return row.example;
  const api::operation& operation = *row.operation;
  std::string example(operation.command);
  for (const api::argument& argument : operation.arguments())
    if (is_written(argument))
      example += " " + sample(argument);
  return example;
}

std::string help_text(const words& begin)
{
  if (begin.empty())
    return overview();
  const words path = all_command_words().in_full(begin);
  std::string text;
  for (const command_row& row : command_table())
    if (begins_with(line_split(row.words), path))
      text += (text.empty() ? "" : "\n") + entry(row);
  return text;
}
