// Operations as commands: their words stand in the API table, and the rest of a line is their inputs.
#ifndef TOOLS_PPPOEIACTL_WORDS_OPERATION_WORDS_H
#define TOOLS_PPPOEIACTL_WORDS_OPERATION_WORDS_H

#include "pppoeia/api/table.h"
#include "tools/pppoeiactl/words/command_words.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// The row of an operation that must exist: a misspelt name does not compile.
consteval const api::operation& row(std::string_view name)
{
  const size_t id = api::operation_id(name);
  if (id == api::operations.size())
    throw "no such operation";
  return api::operations[id];
}

// Whether a person writes the argument as a word of its own.
bool is_written(const api::argument& argument);

// "bridge vlan set BRIDGE VLAN ENABLE": the command with its inputs.
std::string operation_usage(const api::operation& operation);

// The options that stand in it, "=" behind each that takes a value.
std::string_view operation_options(const api::operation& operation);

// What stands behind a command's words: plain ones, and those of records gathered as one list from --type, --kind,
// --parent and --location.
struct operation_line {
  words plain;
  std::string record;
  std::optional<std::string> tty;  // where a report goes, if anywhere else than to this program's output
};
operation_line operation_line_read(const api::operation& operation, const words& line);

// The inputs in the operation's order, each checked for its kind; `tty` stands for a terminal.
words inputs_arrange(const api::operation& operation, const operation_line& given, const std::string& tty);

// Both, of an operation without a terminal.
words operation_inputs(const api::operation& operation, const words& line);

// "port add br0 5 dev name --type eth": a command of arranged inputs, as operation_inputs() reads it back.
std::string command_text(const api::operation& operation, const words& inputs);

// The id of "call ID ARG...". Throws for what is none.
uint16_t call_id_parse(const words& line);

// What "format set" calls, in order, each operation with the words behind its own. The mode comes first, custom where
// a Circuit ID format is given and no mode: until the format is there too, the bridge's is in force and not none at
// all. Throws where nothing is to be set.
std::vector<std::pair<const api::operation*, words>> format_set_calls(const given_words& given);

// A decimal number in a command of this program's own, 0 to `most`; throws for any other text. `what` names it.
uint64_t number_word_parse(const std::string& text, uint64_t most, const char* what);

// Stands for no particular VLAN, and for no customer VLAN.
inline constexpr uint16_t no_vlan = 4095;

// A port's id, a VLAN's; "none" is no particular VLAN.
uint32_t port_word_parse(const std::string& text);
uint16_t vlan_word_parse(const std::string& text, const char* what = "vlan");

// Throws what is wrong with a text as an input of that kind, if anything.
void argument_check(const api::argument& argument, const std::string& text);

// Throws for a format that is longer than any setter takes. `what` names it.
void format_length_check(const std::string& what, const std::string& format);

#endif
