// Calls of the agent's operations by their rows in the API table.
#ifndef TOOLS_AGENT_CLIENT_AGENT_CLIENT_H
#define TOOLS_AGENT_CLIENT_AGENT_CLIENT_H

#include "platform/ippc/client.h"
#include "pppoeia/api/table.h"
#include "tools/agent_client/values.h"

#include <chrono>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace agent_client {

inline constexpr char default_socket[] = "/var/run/pppoeia_fe_main";

struct answer {
  ippc::call_error error = ippc::call_error::none;
  int32_t status = 0;           // the dispatcher's
  int32_t result = 0;           // the operation's
  std::vector<buffer> buffers;  // of all arguments, as they came back
  int refusal = 0;              // errno value where the socket could not be reached

  bool arrived() const { return error == ippc::call_error::none; }
  bool ok() const { return arrived() && status == 0 && result == 0; }
};

// An operation with its input arguments as texts, in order, and its answer.
struct question {
  const api::operation* operation = nullptr;
  std::vector<std::string> inputs;
  answer told;
};

class connection {
public:
  connection(std::string socket, std::chrono::milliseconds time_out) : socket_(std::move(socket)), time_out_(time_out)
  {}

  // Calls with buffers as they are. Connects at the first call.
  answer call(uint16_t id, std::vector<buffer> buffers);

  // Calls an operation with its input arguments as texts, in order; outputs get room. An input that is no value of
  // its kind is a mistake in the program: checked before, with encode().
  answer call(const api::operation& operation, std::span<const std::string> inputs);

  // Asks in that order, without waiting for one answer before the next question. Once the connection fails, that is
  // the answer to all that are left.
  void call_all(std::span<question> questions);

  const std::string& socket() const { return socket_; }

private:
  std::string socket_;
  std::chrono::milliseconds time_out_;
  bool open_ = false;
  ippc::client client_;
};

// What an operation's result other than 0 says.
std::string error_text(std::string_view operation, int32_t result);

}  // namespace agent_client

#endif
