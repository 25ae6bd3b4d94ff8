// bllmsg: an operator's message to the service framework.
#include "rte/BLL/core/manager/messages.h"
#include "tools/bllmsg/message.h"
#include "tools/report_terminal/report_terminal.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
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

int main(int argc, char** argv)
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
