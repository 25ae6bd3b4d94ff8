#include "tools/agent_client/agent_client.h"

#include <cerrno>
#include <stdexcept>

namespace agent_client {
namespace {

std::vector<buffer> buffers_of(const api::operation& operation, std::span<const std::string> inputs)
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
  return buffers;
}

}  // namespace

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
  return call(operation.id, buffers_of(operation, inputs));
}

void connection::call_all(std::span<question> questions)
{
  constexpr size_t together = 64;  // their packets fit into a socket
  std::vector<ippc::pending_call> calls;
  for (const question& one : questions)
    calls.push_back({one.operation->id, buffers_of(*one.operation, one.inputs), {}});
  if (!open_ && !client_.open(socket_)) {
    for (question& one : questions)
      one.told = {ippc::call_error::no_server, 0, 0, {}};
    return;
  }
  open_ = true;
  client_.call_all(calls, together, time_out_);
  for (size_t i = 0; i < calls.size(); ++i)
    questions[i].told = {calls[i].reply.error, calls[i].reply.status, calls[i].reply.result,
                         std::move(calls[i].arguments)};
}

}  // namespace agent_client
