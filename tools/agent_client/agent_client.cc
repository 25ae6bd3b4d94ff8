#include "tools/agent_client/agent_client.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
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

std::string error_text(std::string_view operation, int32_t result)
{
  using enum api::meaning;
  const api::operation* row = api::find_operation(operation);
  switch (row ? api::meaning_of(*row, result) : api::usual_meaning(result)) {
  case no_bridge_or_entry:
  case no_entry_behind:
    return "no such bridge or entry";
  case no_port:
    return "no such port";
  case not_initialised:
    return "agent not initialised";
  case invalid_value:
  case name_too_long:
  case above_mtu:
  case port_zero:
    return "invalid value";
  case text_too_long:
    return "text too long";
  case no_memory:
  case too_many_slots:
    return "no memory";
  case no_kernel_bridge:
    return "no such kernel bridge";
  case not_possible:
  case kvbridge_out_of_reach:
  case kernel_refuses:
    return "not possible";
  case not_applicable:
  case no_atm_port:
    return "not applicable to this bridge or port";
  case no_bridge:
    return "no such bridge";
  case no_vlan:
    return "no such VLAN";
  case bridge_exists:
    return "bridge already exists";
  case port_out_of_range:
    return "port id out of range";
  case kvmng_out_of_reach:
  case system_error:
    break;
  }
  return std::strerror(std::abs(result));
}

}  // namespace agent_client
