// pppoeiactl: the agent's command line.
#include "tools/pppoeiactl/agent/context.h"
#include "tools/pppoeiactl/agent/report.h"
#include "tools/pppoeiactl/commands.h"
#include "tools/pppoeiactl/words/commands.h"
#include "tools/pppoeiactl/words/help.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>
#include <unistd.h>

namespace {

struct settings {
  std::string socket = agent_client::default_socket;
  double seconds = 5;
  double patience = 0;
  bool json = false;
  bool force = false;
  bool help = false;
  std::string batch;
  double watch_seconds = 0;
  words command;
  bool completing = false;  // the last word of `command` is to be completed
};

void warning_print(const std::string& text)
{
  std::fprintf(stderr, "pppoeiactl: warning: %s\n", text.c_str());
}

exit_status run_batch(const context& context, const settings& given)
{
  if (given.batch == "-")
    return batch_run(context, std::cin, "standard input", given.force);
  if (std::filesystem::is_directory(given.batch))
    throw command_error(exit_usage, "--batch: '" + given.batch + "' is a directory, no file of commands");
  std::ifstream file(given.batch);
  if (!file)
    throw command_error(exit_usage, "--batch: '" + given.batch + "': " + std::strerror(errno));
  return batch_run(context, file, given.batch, given.force);
}

// Repeats the command until a signal ends the program. A terminal is cleared for each round, which begins with the
// time.
[[noreturn]] void watch_run(const context& context, const words& command, double seconds)
{
  const bool screen = isatty(STDOUT_FILENO) && !context.json;
  class watch rounds;
  struct context here = context;
  here.watch = &rounds;
  for (bool first = true;; first = false) {
    rounds.round(watch::clock::now());
    char now[32];
    const std::time_t time = std::time(nullptr);
    std::strftime(now, sizeof now, "%F %T", std::localtime(&time));
    if (screen)
      std::printf("\x1b[H\x1b[2J%s\n\n", now);
    else if (!first && !context.json)
      std::printf("\n");
    command_run(here, command);
    std::fflush(stdout);
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  }
}

// Until somebody serves the agent's socket, for as long as was asked. Who it is that answers, the command finds out.
void await_agent(agent_client::connection& agent, double seconds)
{
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < end &&
         agent.call(row("pppoeia_log_level_get"), {}).error == ippc::call_error::no_server)
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

// A connection with what a command needs.
void with_connection(const settings& given, const std::function<void(const context&)>& use)
{
  agent_client::connection agent(given.socket, std::chrono::milliseconds(static_cast<int64_t>(given.seconds * 1000)));
  use(context{agent, refusal_text, given.json, nullptr, given.force ? decltype(context::warn)() : warning_print});
}

bool is_interactive(const settings& given)
{
  return given.command.empty() && given.batch.empty() && !given.completing && !given.help && isatty(STDIN_FILENO) &&
         isatty(STDOUT_FILENO);
}

exit_status run(settings given)
{
  if (is_interactive(given)) {
    interactive_run([&](const auto& use) { with_connection(given, use); });
    return exit_done;
  }
  agent_client::connection agent(given.socket, std::chrono::milliseconds(static_cast<int64_t>(given.seconds * 1000)));
  const context context{agent, refusal_text, given.json, nullptr,
                        given.force ? decltype(context::warn)() : warning_print};
  await_agent(agent, given.patience);
  if (given.completing) {
    for (const std::string& word : completions(context, given.command))
      std::printf("%s\n", word.c_str());
    return exit_done;
  }
  try {
    if (given.help) {
      std::fputs(help_text(given.command).c_str(), stdout);
      return exit_done;
    }
    if (!given.batch.empty())
      return run_batch(context, given);
    if (given.command.empty())
      throw command_error(exit_usage, "no command; --help lists them");
    if (given.force)
      given.command = command_forced(std::move(given.command));
    if (given.watch_seconds > 0)
      watch_run(context, given.command, given.watch_seconds);
    command_run(context, given.command);
    return exit_done;
  } catch (const command_error& error) {
    std::fprintf(stderr, "pppoeiactl: %s\n", error.what());
    return error.status();
  }
}

[[noreturn]] void print_and_end(const std::string& text)
{
  std::fputs(text.c_str(), stdout);
  std::exit(exit_done);
}

// Some stand with one dash too, as the tools of the network's other parts take them.
std::string by_name(const std::string& word)
{
  for (const program_option& option : program_options())
    if (!option.other.empty() && word == option.other)
      return std::string(option.name);
  return word;
}

// Parts the program's options, for the parser, from the command, whose own words and options stay as they are. Behind
// "--" everything is the command's.
words options_part(int argc, char** argv, int first, words& command)
{
  words options;
  for (int i = first; i < argc; ++i) {
    const std::string word = by_name(argv[i]);
    if (word == "--") {
      command.insert(command.end(), argv + i, argv + argc);
      break;
    }
    const program_option* option = program_option_find(word);
    if (!option && (!command.empty() || !word.starts_with("-"))) {
      command.push_back(argv[i]);
      continue;
    }
    options.push_back(word);
    if (option && !option->value.empty() && word == option->name && i + 1 < argc)
      options.push_back(argv[++i]);
  }
  return {options.rbegin(), options.rend()};  // as the parser wants them
}

std::string summary(std::string_view option)
{
  return std::string(program_option_find(option)->summary);
}

void options_add(CLI::App& app, settings& given)
{
  const auto seconds = [&](const char* name, double& value, double least) {
    return app.add_option(name, value, summary(name))->check(CLI::Range(least, 86400.0));
  };
  app.add_option("--socket", given.socket, summary("--socket"))->capture_default_str();
  seconds("-t", given.seconds, 0.001)->capture_default_str();
  app.add_flag("--json", given.json, summary("--json"));
  app.add_option("--batch", given.batch, summary("--batch"))->type_name("FILE");
  app.add_flag("--force", given.force, summary("--force"));
  seconds("--watch", given.watch_seconds, 0.01)->type_name("SECONDS");
  seconds("--wait", given.patience, 0.0)->type_name("SECONDS");
  app.set_help_flag();
  app.add_flag("-h,--help", given.help, summary("--help"));
  app.set_version_flag("--version", "pppoeiactl " PROJECT_VERSION, summary("--version"));
}

}  // namespace

// run() tells the errors of commands; what else is thrown is a fault of the program.
int main(int argc, char** argv)  // NOLINT(bugprone-exception-escape)
{
  settings given;
  given.completing = argc > 1 && argv[1] == std::string_view("--complete");
  if (given.completing)
    given.seconds = 1;  // somebody has pressed a key
  CLI::App app{"Configures and queries the PPPoE Intermediate Agent.", "pppoeiactl"};
  options_add(app, given);
  app.add_flag_callback("--man", [] { print_and_end(manual_page()); })->group("");
  app.add_flag_callback("--operations-table", [] { print_and_end(operations_table()); })->group("");
  app.get_formatter()->label("OPTIONS", "OPTIONS] COMMAND [ARGUMENT...");  // stands in brackets
  app.footer("A command and its arguments stand beside the options; behind -- nothing is taken for an option.\n\n" +
             help_text({}) + "\nExit status: " + exit_statuses);
  try {
    // The word to be completed is no option yet.
    const int last = given.completing ? std::max(argc - 1, 2) : argc;
    app.parse(options_part(last, argv, given.completing ? 2 : 1, given.command));
    if (given.completing)
      given.command.push_back(argc > 2 ? argv[argc - 1] : "");
  } catch (const CLI::ParseError& error) {
    if (given.completing)
      return exit_usage;
    return app.exit(error) == 0 ? exit_done : exit_usage;
  }
  if (given.help && given.command.empty())
    print_and_end(app.help());
  return run(given);
}
