#include "tools/pppoeiactl/context.h"

#include "tools/pppoeiactl/refusal.h"

#include <cerrno>
#include <charconv>
#include <cstdio>

namespace {

constexpr bool is_printable(unsigned char c)
{
  return c >= 0x20 && c < 0x7f;
}

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

uint64_t number_word_parse(const std::string& text, uint64_t most, const char* what)
{
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (text.empty() || error != std::errc{} || end != text.data() + text.size() || number > most)
    throw command_error(exit_usage,
                        std::string(what) + ": '" + text + "' is no number from 0 to " + std::to_string(most));
  return number;
}

uint32_t port_word_parse(const std::string& text)
{
  return static_cast<uint32_t>(number_word_parse(text, UINT32_MAX, "port"));
}

uint16_t vlan_word_parse(const std::string& text, const char* what)
{
  constexpr uint16_t no_vlan = 4095;
  return static_cast<uint16_t>(text == "none" ? no_vlan : number_word_parse(text, UINT16_MAX, what));
}

void argument_check(const api::argument& argument, const std::string& text)
{
  std::string why;
  if (!agent_client::encode(argument, text, why))
    throw command_error(exit_usage, why);
}

void format_length_check(const std::string& what, const std::string& format)
{
  const size_t most = row("pppoeia_circuit_id_format_set").arguments().back().size;
  if (format.size() > most)
    throw command_error(exit_usage, what + ": '" + printable(format) + "' has " + std::to_string(format.size()) +
                                        " characters, at most " + std::to_string(most));
}

void json_put_text(nlohmann::ordered_json& object, const std::string& key, const std::string& text)
{
  std::string utf8;
  std::string hex;
  for (const char byte : text) {
    const auto c = static_cast<unsigned char>(byte);
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", c);
    hex += digits;
    if (c >= 0x80) {
      utf8 += static_cast<char>(0xc0 | c >> 6);
      utf8 += static_cast<char>(0x80 | (c & 0x3f));
    } else {
      utf8 += byte;
    }
  }
  object[key] = utf8;
  object[key + "_hex"] = hex;
}

std::string printable(const std::string& text)
{
  std::string out;
  for (const char byte : text) {
    if (is_printable(static_cast<unsigned char>(byte))) {
      out += byte;
      continue;
    }
    char escaped[5];
    std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    out += escaped;
  }
  return out;
}
