#include "tools/pppoeiactl/context.h"

#include <charconv>
#include <cstdio>

namespace {

constexpr bool is_printable(unsigned char c)
{
  return c >= 0x20 && c < 0x7f;
}

}  // namespace

void context::demand_arrival(const agent_client::answer& answer) const
{
  switch (answer.error) {
  case ippc::call_error::none:
    return;
  case ippc::call_error::no_server:
    throw command_error(exit_no_agent, "no agent answers on " + agent.socket());
  case ippc::call_error::time_out:
    throw command_error(exit_time_out, "the agent did not answer in time");
  case ippc::call_error::protocol:
    throw command_error(exit_refused, "the answer is not from an agent");
  case ippc::call_error::busy:
    throw command_error(exit_busy, "the agent on " + agent.socket() + " is busy: all its connections are taken");
  }
}

agent_client::answer context::ask(const api::operation& operation, const words& inputs) const
{
  agent_client::answer answer = agent.call(operation, inputs);
  demand_arrival(answer);
  if (answer.status != 0)
    throw command_error(exit_refused, "the agent did not take the request");
  return answer;
}

agent_client::answer context::demand(const api::operation& operation, const words& inputs) const
{
  agent_client::answer answer = ask(operation, inputs);
  if (answer.result != 0)
    throw command_error(exit_refused, agent_client::error_text(operation.name, answer.result));
  return answer;
}

uint64_t number_word_parse(const std::string& text, uint64_t most, const char* what)
{
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (text.empty() || error != std::errc{} || end != text.data() + text.size() || number > most)
    throw command_error(exit_usage, std::string("no ") + what + ": '" + text + "'");
  return number;
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
