#include "tools/pppoeiactl/words/help.h"

#include "pppoeia/api/settings.h"
#include "pppoeia/api/table.h"
#include "tools/agent_client/values.h"
#include "tools/pppoeiactl/words/line.h"
#include "tools/pppoeiactl/words/operation_words.h"

#include <algorithm>

namespace {

using api::kind;

std::string at_most(size_t characters)
{
  return "at most " + std::to_string(characters) + " characters";
}

// Of a text whose field has that size.
std::string cut_behind(size_t size)
{
  return "more than " + std::to_string(size - 1) + " characters are cut";
}

std::string format_most()
{
  return at_most(sizeof bridge_settings::pppoeia_cid_format - 1) + "; of a VLAN entry " +
         std::to_string(port_vlan_format_max);
}

// Arguments by their names in the table of operations: one that stands for the rest in examples, and what it is.
struct argument_note {
  std::string_view name;
  std::string_view sample;
  std::string what;  // empty: its words or its range say it
};
const argument_note argument_notes[] = {
    {"bridge", "br0", "a bridge's name, " + at_most(bridge_name_max)},
    {"ports", "65", "slots for ports 1 to one less, at most 65536"},
    {"max-pdu", "1492", "bytes, Ethernet header included; at most the MTU of the bridge's device"},
    {"port", "3", "a port's id, 1 to one less than the bridge's slots"},
    {"vlan", "100", "0 to 4095; 0 is what untagged frames have"},
    {"device", "line3", "the line's interface; " + cut_behind(sizeof port_settings::dev_name)},
    {"port-name", "0/3", "$INTF; " + cut_behind(sizeof port_settings::port_name)},
    {"vendor", "ACCESSNODE", ""},
    {"shelf-id", "1", ""},
    {"remote-id", "C-4711", ""},
    {"description", "'Flat 5'", cut_behind(sizeof port_settings::intf_descr)},
    {"cpe-serial", "SN0042", cut_behind(sizeof port_settings::cpe_serial)},
    {"cpe-mac", "02:aa:bb:00:00:07", "a MAC address"},
    {"format", "'$SYSNAME eth $INTF:$VLAN'", "text and macros, " + format_most()},
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
    {"id", "36", "0 to " + std::to_string(api::operations.size() - 1) + ": the operation's number"},
    {"word", "bridge", "of a command"},
    {"file", "card.conf", "commands as of a batch; -: standard input"},
};

// Words of sets whose last word is no good example.
constexpr std::string_view good_samples[] = {"untrusted", "custom",  "subscriber", "remove",
                                             "on",        "warning", "available"};

struct option_note {
  std::string_view name;
  std::string what;
};
const option_note option_notes[] = {
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
    {"--circuit-id", "a format, " + format_most()},
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

struct default_value {
  std::string_view setter;
  std::string text;  // as a word; empty: none that means anything
};

std::string value_text(const api::argument&, std::string_view text)
{
  return text.empty() ? "''" : word_write(std::string(text));
}

std::string value_text(const api::argument& argument, int64_t number)
{
  return agent_client::number_word(argument, number);
}

template <typename Factory>
default_value default_of(std::string_view setter, const Factory& factory)
{
  return {setter, value_text(api::find_operation(setter)->arguments().back(), factory)};
}

// Nobody sees a default that no operation tells, and the two numbers of a new port's PVC stand for none.
template <typename Factory>
default_value of_agent(std::string_view setter, const Factory& factory)
{
  const api::operation* getter = api::getter_of(*api::find_operation(setter));
  if (!getter || getter->name == "pppoeia_port_pvc_get")
    return {setter, ""};
  return default_of(setter, factory);
}

// The first of a setter holds.
const std::vector<default_value>& defaults()
{
  static const entry_settings entry;
  static const std::vector<default_value> all{
      {"pppoeia_bridge_max_pdu_set", "1500"},  // of nearly all devices
      {"pppoeia_bridge_vlan_set", "off"},
      default_of("pppoeia_circuit_id_mode_port_vlan_set", entry.cid_mode),
      default_of("pppoeia_circuit_id_format_port_vlan_set", entry.cid_format),
      default_of("pppoeia_remote_id_format_port_vlan_set", entry.rid_format),
#define OF_BRIDGE(name, field, setter, ...) of_agent(#setter, bridge_factory.field),
#define OF_PORT(name, field, setter, ...) of_agent(#setter, port_factory.field),
#define OF_OWN(name, factory, setter, ...) of_agent(#setter, factory),
      PPPOEIA_PROCESS_SETTINGS(OF_OWN)                       //
      PPPOEIA_BRIDGE_SETTINGS(OF_BRIDGE, OF_BRIDGE, OF_OWN)  //
      PPPOEIA_PORT_SETTINGS(OF_PORT, OF_PORT, OF_OWN)        //
#undef OF_BRIDGE
#undef OF_PORT
#undef OF_OWN
  };
  return all;
}

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
    return note->what;
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
  const auto found = std::ranges::find(defaults(), operation.name, &default_value::setter);
  if (found != defaults().end())
    facts.default_value = found->text;
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
      text.append("      ").append(name).append(": ").append(what).append("\n");
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
