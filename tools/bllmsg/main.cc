// bllmsg: an operator's message to the service framework.
#include "rte/BLL/core/manager/messages.h"
#include "rte/BLL/core/rpc_bll_service.h"
#include "tools/report_terminal/report_terminal.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <memory>
#include <string>

namespace {

enum exit_status : int { exit_delivered = 0, exit_refused = 1, exit_usage = 2, exit_no_service = 3 };

constexpr char exit_statuses[] = "Exit status: 0 delivered, 1 refused, 2 usage, 3 no service.";

struct settings {
  std::string message;
  std::string value;
  std::string tty;
  double seconds = 5;
  bool tcp = false;
  bool list = false;
};

void list_messages()
{
  for (const bllCommand_t& command : bllCommands) {
    const std::string message = std::string(command.message) + (command.prefix ? "..." : "");
    std::printf("%-20s %-34s %s\n", message.c_str(), std::string(command.values).c_str(),
                std::string(command.what).c_str());
  }
  std::printf("%-20s %-34s %s\n", "dhcpra:MESSAGE", "", "handed to the agent that shares the framework");
}

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

struct client_destroy {
  void operator()(CLIENT* client) const
  {
    if (client->cl_auth)
      auth_destroy(client->cl_auth);
    clnt_destroy(client);
  }
};
using client_ptr = std::unique_ptr<CLIENT, client_destroy>;

std::string without_newline(std::string text)
{
  while (!text.empty() && text.back() == '\n')
    text.pop_back();
  return text;
}

timeval time_from(double seconds)
{
  const auto whole = static_cast<time_t>(seconds);
  return {whole, static_cast<suseconds_t>((seconds - static_cast<double>(whole)) * 1'000'000)};
}

bool service_is_absent(clnt_stat status)
{
  return status == RPC_TIMEDOUT || status == RPC_CANTSEND || status == RPC_CANTRECV;
}

// Why the call has failed.
std::string reason_of(CLIENT* client)
{
  rpc_err error = {};
  clnt_geterr(client, &error);
  if (error.re_status == RPC_AUTHERROR && error.re_why == AUTH_TOOWEAK)
    return "not allowed: the service serves root, its own user and those of bllhost --allow-user";
  return without_newline(clnt_sperror(client, "not delivered"));
}

// Waits at most `seconds` for the answer. `tty` is where the service writes its reply; empty: its own standard output.
delivery_result message_send(transport transport, double seconds, const std::string& message, const std::string& value,
                             const std::string& tty)
{
  const timeval limit = time_from(seconds);
  const client_ptr client(clnt_create_timed("127.0.0.1", bllRpcProgram, bllRpcVersion,
                                            transport == transport::udp ? "udp" : "tcp", &limit));
  if (!client)
    return {delivery::no_service, without_newline(clnt_spcreateerror("no service"))};

  std::string texts[] = {message, value, tty};
  bllRpcMessage_t arguments{texts[0].data(), texts[1].data(), texts[2].data()};
  enum_t undelivered = 0;
  const clnt_stat status = clnt_call(client.get(), bllRpcSendMessage, reinterpret_cast<xdrproc_t>(xdrBllRpcMessage),
                                     reinterpret_cast<char*>(&arguments), reinterpret_cast<xdrproc_t>(xdr_enum),
                                     reinterpret_cast<char*>(&undelivered), limit);
  if (status != RPC_SUCCESS)
    return {service_is_absent(status) ? delivery::no_service : delivery::refused, reason_of(client.get())};
  if (undelivered)
    return {delivery::refused, "the service could not write its reply to " + tty};
  return {delivery::delivered, {}};
}

exit_status send(const settings& given, const std::string& tty)
{
  const auto [outcome, reason] =
      message_send(given.tcp ? transport::tcp : transport::udp, given.seconds, given.message, given.value, tty);
  if (!reason.empty())
    std::fprintf(stderr, "bllmsg: %s\n", reason.c_str());
  switch (outcome) {
  case delivery::delivered:
    return exit_delivered;
  case delivery::refused:
    return exit_refused;
  case delivery::no_service:
    break;
  }
  return exit_no_service;
}

// The reply comes to a file made for it, so that it arrives whole wherever standard output goes.
exit_status send_and_show(const settings& given)
{
  report_terminal terminal;
  const exit_status status = send(given, terminal.path());
  if (status == exit_delivered)
    std::fputs(terminal.take().c_str(), stdout);
  return status;
}

}  // namespace

// What is sent is caught; what else is thrown is a fault of the program.
int main(int argc, char** argv)  // NOLINT(bugprone-exception-escape)
{
  std::signal(SIGPIPE, SIG_IGN);  // a service that closes the connection is a refusal, not the end
  settings given;
  CLI::App app("Sends an operator's message to the service framework of this node and shows its reply.", "bllmsg");
  app.add_option("MESSAGE", given.message, "what to do; --list names what the framework understands by itself");
  app.add_option("VALUE", given.value, "the message's value");
  app.add_option("--tty", given.tty, "terminal device for the reply, instead of this one");
  app.add_option("-t,--timeout", given.seconds, "seconds to wait for the service")->capture_default_str();
  app.add_flag("--tcp", given.tcp, "over TCP instead of UDP: for values of more than 8 KiB");
  app.add_flag("--list", given.list, "explain the messages and end");
  app.footer(exit_statuses);
  try {
    app.parse(argc, argv);
    if (given.list)
      return list_messages(), exit_delivered;
    if (given.message.empty())
      throw CLI::RequiredError("MESSAGE");
    if (!(given.seconds > 0 && given.seconds < 86400))
      throw CLI::ValidationError("--timeout", "between 0 and 86400 seconds");
    return given.tty.empty() ? send_and_show(given) : send(given, given.tty);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? exit_delivered : exit_usage;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bllmsg: %s\n", error.what());
    return exit_refused;
  }
}
