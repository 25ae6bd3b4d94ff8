// kvbridged: the node's kernel modules kvbridge and kvmng in user space, for real traffic on a stock kernel.
#include "platform/kvbridged/control_tree.h"
#include "platform/kvbridged/modules.h"
#include "platform/kvbridged/private_proc.h"
#include "platform/kvbridged/tree_place.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

using namespace kvbridged;

void machine_check()
{
  if (geteuid() != 0)
    throw fatal("must be root");
  if (access("/dev/net/tun", R_OK | W_OK) != 0)
    throw fatal("no TAP devices: /dev/net/tun cannot be opened");
  if (access("/dev/fuse", R_OK | W_OK) != 0)
    throw fatal("no FUSE: /dev/fuse cannot be opened");
}

// SIGINT and SIGTERM end the loop, SIGUSR1 prints the statistics.
descriptor signals_watch(loop& events, const modules& modules)
{
  sigset_t wanted;
  sigemptyset(&wanted);
  for (const int number : {SIGINT, SIGTERM, SIGUSR1})
    sigaddset(&wanted, number);
  sigprocmask(SIG_BLOCK, &wanted, nullptr);
  descriptor fd(signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK));
  events.watch(fd.get(), [&events, &modules, number = fd.get()] {
    signalfd_siginfo info{};
    if (read(number, &info, sizeof info) != sizeof info)
      return;
    if (info.ssi_signo != SIGUSR1)
      return events.end();
    std::fputs(modules.statistics().c_str(), stdout);
    std::fflush(stdout);
  });
  return fd;
}

std::vector<bridge_settings> settings_of(const std::vector<std::string>& bridges, const std::vector<std::string>& ports)
{
  std::vector<bridge_settings> settings;
  for (const std::string& text : bridges)
    settings.push_back(bridge_parse(text));
  for (const std::string& text : ports)
    port_parse(text, settings);
  return settings;
}

void run(const std::vector<bridge_settings>& settings, const std::string& tree)
{
  machine_check();
  loop events;
  tree_place place(tree);
  modules modules(settings, events, place.filters(),
                  [&](const filter_owners& filters) { place.filters_keep(filters); });
  const descriptor signals = signals_watch(events, modules);
  {
    const control_tree files(modules, events, place.path());
    std::printf("kvbridged: ready at %s\n", place.path().c_str());
    std::fflush(stdout);
    events.run();
  }
  std::fputs(modules.statistics().c_str(), stdout);
}

// What could not be understood as it was written, against what could not be done.
constexpr int failure = 1;
constexpr int wrong_usage = 2;

int say(const std::exception& error, int status)
{
  std::fprintf(stderr, "kvbridged: %s\n", error.what());
  return status;
}

}  // namespace

int main(int argc, char** argv)
{
  std::string tree = default_tree;
  std::vector<std::string> bridges;
  std::vector<std::string> ports;
  std::vector<std::string> command;
  CLI::App app{"Plays the kernel modules kvbridge and kvmng in user space.", "kvbridged"};
  app.require_subcommand(1);
  app.add_option("--tree", tree, "Where the control files are mounted")->capture_default_str();
  CLI::App* serve = app.add_subcommand("run", "Serve bridges until SIGINT or SIGTERM; SIGUSR1 prints statistics");
  serve->add_option("--bridge", bridges, "NAME[,stag=0x88a8][,mtu=1500]: a bridge")->required();
  serve->add_option("--port", ports, "BRIDGE,PORT,subscriber|network,INTERFACE[,addresses=1024]: a port of a bridge");
  CLI::App* exec = app.add_subcommand("exec", "Run a command that sees the control files in /proc/net");
  exec->add_option("command", command, "The command and its arguments, behind --")->required();
  std::vector<bridge_settings> settings;
  try {
    app.parse(argc, argv);
    settings = settings_of(bridges, ports);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : wrong_usage;
  } catch (const fatal& error) {
    return say(error, wrong_usage);
  }
  try {
    if (*exec)
      private_proc_exec(tree, command);
    run(settings, tree);
    return 0;
  } catch (const std::exception& error) {
    return say(error, failure);
  }
}
