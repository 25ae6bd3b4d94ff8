#include "tools/pppoeiactl/agent/context.h"

#include <cerrno>

namespace {

command_error unreachable(const std::string& socket, int refusal)
{
  switch (refusal) {
  case EACCES:
  case EPERM:
    return {exit_no_permission, "no permission for " + socket + " (it is for its owner and the group pppoeia)"};
  case ENAMETOOLONG:
    return {exit_usage, "--socket: '" + socket + "' is too long for a socket's path"};
  case ENOTSOCK:
  case EPROTOTYPE:
    return {exit_no_agent, socket + " is no agent's socket"};
  case ECONNREFUSED:
    return {exit_no_agent, "no agent answers on " + socket + ": the one that made it has ended"};
  default:
    return {exit_no_agent, "no agent answers on " + socket + " (--socket PATH names another, --wait SECONDS waits)"};
  }
}

}  // namespace

void context::demand_arrival(const agent_client::answer& answer) const
{
  switch (answer.error) {
  case ippc::call_error::none:
    return;
  case ippc::call_error::no_server:
    throw unreachable(agent.socket(), answer.refusal);
  case ippc::call_error::time_out:
    throw command_error(exit_time_out, "the agent on " + agent.socket() + " did not answer in time (-t SECONDS)");
  case ippc::call_error::protocol:
    throw command_error(exit_refused, "what answers on " + agent.socket() + " is no agent");
  case ippc::call_error::busy:
    throw command_error(exit_busy, "the agent on " + agent.socket() + " is busy: all its connections are taken");
  }
}

agent_client::answer context::ask(const api::operation& operation, const words& inputs) const
{
  agent_client::answer answer = agent.call(operation, inputs);
  demand_arrival(answer);
  if (answer.status != 0)
    throw command_error(exit_refused, std::string(operation.command) + ": the agent does not know this operation");
  return answer;
}

agent_client::answer context::demand(const api::operation& operation, const words& inputs) const
{
  agent_client::answer answer = ask(operation, inputs);
  if (answer.result != 0)
    refuse(operation, inputs, answer.result);
  return answer;
}

void context::refuse(const api::operation& operation, const words& inputs, int32_t result) const
{
  throw command_error(exit_refused, refusal_text(*this, operation, inputs, result));
}
