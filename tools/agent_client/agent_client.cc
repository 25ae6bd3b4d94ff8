#include "tools/agent_client/agent_client.h"

#include <cerrno>
#include <stdexcept>

namespace agent_client {

answer connection::call(uint16_t id, std::vector<buffer> buffers)
{
  if (!open_ && !client_.open(socket_))
    return {ippc::call_error::no_server, 0, 0, {}, errno};
  open_ = true;
  const ippc::call_reply reply = client_.call(id, buffers, time_out_);
  return {reply.error, reply.status, reply.result, std::move(buffers), 0};
}

answer connection::call(const api::operation& operation, std::span<const std::string> inputs)
{
  std::vector<buffer> buffers;
  size_t next = 0;
  for (const api::argument& argument : operation.arguments()) {
    std::string why;
    const bool output = api::is_output(argument.what);
    std::optional<buffer> bytes = output ? output_room(argument) : encode(argument, inputs[next++], why);
    if (!bytes)
      throw std::invalid_argument(why);
    buffers.push_back(std::move(*bytes));
  }
  return call(operation.id, std::move(buffers));
}

}  // namespace agent_client
