// What every command has: the connection, the output style, and the ways to fail.
#ifndef TOOLS_PPPOEIACTL_CONTEXT_H
#define TOOLS_PPPOEIACTL_CONTEXT_H

#include "tools/agent_client/agent_client.h"
#include "tools/pppoeiactl/exit_status.h"
#include "tools/pppoeiactl/show/watch.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

// Of the JSON that this program prints: goes up when a key gets another meaning or goes away.
inline constexpr int json_version = 1;

// Thrown by commands, caught where one command ends: its text goes to standard error.
class command_error : public std::runtime_error {
public:
  command_error(exit_status status, const std::string& text) : std::runtime_error(text), status_(status) {}
  exit_status status() const { return status_; }

private:
  exit_status status_;
};

using words = std::vector<std::string>;

struct context {
  agent_client::connection& agent;
  bool json = false;
  class watch* watch = nullptr;                       // of a command that is repeated
  std::function<void(const std::string&)> warn = {};  // says that a value means nothing; empty: nobody is to know

  // Throws, with what a user is to be told, unless an answer arrived.
  void demand_arrival(const agent_client::answer& answer) const;

  // Calls an operation by its row's name; the name is checked while compiling where it is a literal (see row()).
  // Throws unless the agent answered; the result may be any.
  agent_client::answer ask(const api::operation& operation, const words& inputs) const;

  // The same, and throws unless the result is 0.
  agent_client::answer demand(const api::operation& operation, const words& inputs) const;

  // Throws what a user is to be told of a result other than 0.
  [[noreturn]] void refuse(const api::operation& operation, const words& inputs, int32_t result) const;
};

// The row of an operation that must exist: a misspelt name does not compile.
consteval const api::operation& row(std::string_view name)
{
  const size_t id = api::operation_id(name);
  if (id == api::operations.size())
    throw "no such operation";
  return api::operations[id];
}

// A decimal number in a command of this program's own, 0 to `most`; throws for any other text. `what` names it.
uint64_t number_word_parse(const std::string& text, uint64_t most, const char* what);

// A port's id, a VLAN's; "none" is no particular VLAN.
uint32_t port_word_parse(const std::string& text);
uint16_t vlan_word_parse(const std::string& text, const char* what = "vlan");

// Throws what is wrong with a text as an input of that kind, if anything.
void argument_check(const api::argument& argument, const std::string& text);

// Throws for a format that is longer than any setter takes. `what` names it.
void format_length_check(const std::string& what, const std::string& format);

// A text as JSON: valid UTF-8 whatever its bytes are (bytes above 127 and control characters as \u00xx), and the bytes
// in hexadecimal beside it as "<key>_hex".
void json_put_text(nlohmann::ordered_json& object, const std::string& key, const std::string& text);

// A text for a terminal: printable ASCII as it is, other bytes as \xNN.
std::string printable(const std::string& text);

#endif
