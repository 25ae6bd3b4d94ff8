// Sending an operator's message to the framework's ONC RPC service.
#ifndef TOOLS_BLLMSG_MESSAGE_H
#define TOOLS_BLLMSG_MESSAGE_H

#include <string>

enum class transport { udp, tcp };

enum class delivery {
  delivered,
  refused,     // the service has answered, but could not handle the message or deliver the reply
  no_service,  // nobody answers on the loopback interface
};

struct delivery_result {
  delivery outcome;
  std::string reason;  // one line; empty if delivered
};

// Waits at most `seconds` for the answer. `tty` is where the service writes its reply; empty: its own standard output.
delivery_result message_send(transport transport, double seconds, const std::string& message, const std::string& value,
                             const std::string& tty);

#endif
