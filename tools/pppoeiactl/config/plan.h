// The commands that make one card of another.
//
// Objects that are equal are not touched. A value is changed in place where an operation does that; what only adding
// can give (a port's device, type and kind, a bridge's number of slots) is given by removing and adding again. The
// order opens no window: first bridges with their settings and VLANs, then ports, parents first; a new port gets its
// trust and its side before all else, one that exists last, when the rest is right. What is not wanted any more goes
// at the end.
#ifndef TOOLS_PPPOEIACTL_CONFIG_PLAN_H
#define TOOLS_PPPOEIACTL_CONFIG_PLAN_H

#include "tools/pppoeiactl/config/card.h"

namespace config {

struct command {
  const api::operation* operation;
  words inputs;        // as the operation takes them
  std::string object;  // what it is about: commands of one object stand together
  // Lines for the memory (memory.h): to be there before the request is made, and when it was granted.
  std::string before;
  std::string after;

  std::string text() const;  // as in a batch
};

struct plan {
  std::vector<command> commands;
  words assumed;  // "kind of port 5 of br0": not known of the agent, so taken to be as wanted
};

struct plan_options {
  bool keep = false;   // what is not wanted stays
  bool renew = false;  // nothing is assumed: ports whose kind is not known are added again
};

plan plan_make(const card& from, const card& to, const plan_options& options);

}  // namespace config

#endif
