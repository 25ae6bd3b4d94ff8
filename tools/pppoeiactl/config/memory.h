// What the tool gave the agent and no operation tells: of a port its kind and those parts of its location that its type
// does not show, of a bridge its number of slots and the largest PDU that its device allows.
//
// It stands in a file beside the agent's socket, a line an event, and holds for that one run of the agent: the file
// names the socket's inode and the moment it was made. A line is written before a port is added, since one that is
// absent cannot be mistaken; what changes a port that exists is written in doubt first, and confirmed when the agent
// has granted it. So a tool that is killed leaves "not known" behind, never something wrong. A port whose name, type or
// visible location is another than what was noted was changed by somebody else and counts as not known; only one that
// somebody else has removed and added again with the same of these and another kind is not found out.
#ifndef TOOLS_PPPOEIACTL_CONFIG_MEMORY_H
#define TOOLS_PPPOEIACTL_CONFIG_MEMORY_H

#include "tools/pppoeiactl/config/card.h"

namespace config {

struct remembered_port {
  port known;                   // its birth and name values; the others say nothing
  bool doubtful = false;        // it was being replaced: nothing is known
  bool place_in_doubt = false;  // it was being renamed
};

struct remembered_bridge {
  value slots;
  value max_pdu;
  std::map<uint32_t, remembered_port> ports;
};

class memory {
public:
  explicit memory(std::string socket) : socket_(std::move(socket)) {}

  // All that holds for the agent that serves the socket now.
  std::map<std::string, remembered_bridge> read() const;

  // Appends lines. False when that cannot be: then there is nothing to remember later.
  bool append(const std::string& lines) const;

  // While it is held no other tool applies a file. False when another holds it.
  bool lock();
  // Also where it is not held. A child's lock is its parent's: it is free when both have let it go.
  void unlock();
  ~memory();
  memory(const memory&) = delete;
  memory& operator=(const memory&) = delete;

  std::string path() const { return socket_ + ".known"; }

private:
  std::string socket_;
  int locked_ = -1;
};

// The lines.
std::string bridge_added_line(const std::string& bridge, const std::string& slots);
std::string bridge_max_pdu_line(const std::string& bridge, const std::string& most);
std::string bridge_removed_line(const std::string& bridge);
std::string all_removed_line();
std::string port_added_line(const std::string& bridge, uint32_t id, const port& port);
std::string port_in_doubt_line(const std::string& bridge, uint32_t id);
std::string port_removed_line(const std::string& bridge, uint32_t id);
std::string place_in_doubt_line(const std::string& bridge, uint32_t id);
std::string place_line(const std::string& bridge, uint32_t id, const port& port);

// Around an operation that a user called by itself: what is to be noted of it before and behind.
class memory_note {
public:
  memory_note(const context& context, const api::operation& operation, const words& inputs);
  // To be called once the agent has answered; `granted` when the result was 0.
  void answered(bool granted);

private:
  const context& context_;
  std::string after_;
  std::string refused_;
  std::string bridge_added_;
};

}  // namespace config

#endif
