// pppoeiactl: the agent's command line.
#include "tools/pppoeiactl/command.h"
#include "tools/pppoeiactl/reference.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <thread>

namespace {

struct settings {
  std::string socket = agent_client::default_socket;
  double seconds = 5;
  bool json = false;
  bool go_on = false;
  std::string batch;
  double watch_seconds = 0;
  words command;
};

exit_status run_batch(const context& context, const settings& given)
{
  if (given.batch == "-")
    return batch_run(context, std::cin, "standard input", given.go_on);
  std::ifstream file(given.batch);
  if (!file)
    throw command_error(exit_usage, "cannot read " + given.batch);
  return batch_run(context, file, given.batch, given.go_on);
}

// Between two rounds of a watch. Always true: a signal ends the program.
bool pause(double seconds)
{
  std::fflush(stdout);
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  std::printf("\n");
  return true;
}

exit_status run(const settings& given)
{
  agent_client::connection agent(given.socket, std::chrono::milliseconds(static_cast<int64_t>(given.seconds * 1000)));
  const context context{agent, given.json};
  try {
    if (!given.batch.empty())
      return run_batch(context, given);
    if (given.command.empty())
      throw command_error(exit_usage, "no command; --help lists them");
    do {
      command_run(context, given.command);
    } while (given.watch_seconds > 0 && pause(given.watch_seconds));
    return exit_done;
  } catch (const command_error& error) {
    std::fprintf(stderr, "pppoeiactl: %s\n", error.what());
    return error.status();
  }
}

constexpr char exit_statuses[] = "Exit status: 0 done, 1 refused by the agent, 2 usage, 3 no agent, 4 time-out.";

[[noreturn]] void print_and_end(const std::string& text)
{
  std::fputs(text.c_str(), stdout);
  std::exit(exit_done);
}

// Long options with one dash, as the tools of the network's other parts take them.
words arguments_of(int argc, char** argv)
{
  words arguments;
  for (int i = argc - 1; i > 0; --i) {
    const std::string word = argv[i];
    arguments.push_back(word == "-batch" || word == "-json" || word == "-force" ? "-" + word : word);
  }
  return arguments;  // reversed, as the parser wants it
}

}  // namespace

int main(int argc, char** argv)
{
  settings given;
  CLI::App app{"Configures and queries the PPPoE Intermediate Agent.", "pppoeiactl"};
  app.add_option("--socket", given.socket, "Socket of the agent")->capture_default_str();
  app.add_option("-t", given.seconds, "Seconds to wait for an answer")
      ->check(CLI::Range(0.001, 86400.0))
      ->capture_default_str();
  app.add_flag("--json", given.json, "Print JSON");
  app.add_option("--batch", given.batch, "Run the commands of a file, one a line (-: standard input)")
      ->type_name("FILE");
  app.add_flag("--force", given.go_on, "Go on after a failed line of a batch");
  app.add_option("--watch", given.watch_seconds, "Repeat the command at that pace")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.01, 86400.0));
  app.add_flag_callback("--man", [] { print_and_end(manual_page()); })->group("");
  app.add_flag_callback("--operations-table", [] { print_and_end(operations_table()); })->group("");
  app.add_option("command", given.command, "Command and its arguments");
  app.prefix_command();
  app.footer(command_list() + exit_statuses);
  try {
    app.parse(arguments_of(argc, argv));
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? exit_done : exit_usage;
  }
  const words rest = app.remaining();
  given.command.insert(given.command.end(), rest.begin(), rest.end());
  return run(given);
}
