// What every command has: the connection, the output style, and the ways to fail.
#ifndef TOOLS_PPPOEIACTL_AGENT_CONTEXT_H
#define TOOLS_PPPOEIACTL_AGENT_CONTEXT_H

#include "tools/agent_client/agent_client.h"
#include "tools/pppoeiactl/words/command_error.h"
#include "tools/pppoeiactl/words/operation_words.h"

#include <cstdint>
#include <functional>
#include <string>

class watch;
struct context;

// One line for a user of a result other than 0. `inputs` are those of the call. May ask the agent what there is.
using refusal_teller = std::string(const context& context, const api::operation& operation, const words& inputs,
                                   int32_t result);

struct context {
  agent_client::connection& agent;
  refusal_teller* refusal_text;  // knows all that the program knows; never null
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

#endif
