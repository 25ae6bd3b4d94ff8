// "apply --confirm": a change that goes back by itself.
//
// Before anything is changed, a child is made that holds the card as it was. It belongs to no terminal, and listens on
// a socket of its own beside the agent's, SOCKET.confirm. Once the tool has told it that all is done, it waits for the
// word that "pppoeiactl confirm" brings, and without it puts the card back. A tool that dies before it has told
// anything has not confirmed either: the card goes back at once. While the child waits or goes back it keeps the lock
// of memory.h, so that no other file is applied meanwhile; who confirms is done when it is free. Nobody watches the
// child: when it is killed, what was done stays.
#ifndef TOOLS_PPPOEIACTL_CONFIG_CONFIRMATION_H
#define TOOLS_PPPOEIACTL_CONFIG_CONFIRMATION_H

#include "tools/pppoeiactl/agent/context.h"
#include "tools/pppoeiactl/config/memory.h"

#include <functional>

namespace config {

class confirmation {
public:
  // Puts the card back by a connection of its own; tells how that went.
  using go_back = std::function<std::string(const context&)>;

  // Makes the child, which holds the lock of `memory` as well. Throws command_error when it cannot listen.
  confirmation(const context& context, memory& memory, unsigned seconds, const go_back& back);
  ~confirmation();
  confirmation(const confirmation&) = delete;
  confirmation& operator=(const confirmation&) = delete;

  void begin();  // all is done: the time runs
  void drop();   // nothing is left to go back from

private:
  void tell(char word);

  int child_ = -1;  // what it is told by; closed without a word, it goes back
};

// Throws command_error when nothing waits.
void confirmation_give(const std::string& agent_socket);

}  // namespace config

#endif
