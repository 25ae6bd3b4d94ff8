// kvbridged: the node's kernel modules kvbridge and kvmng in user space, for real traffic on a stock kernel.
#include "platform/kvbridged/control_tree.h"
#include "platform/kvbridged/modules.h"
#include "platform/kvbridged/private_proc.h"

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

void run(const std::vector<std::string>& bridge_texts, const std::vector<std::string>& port_texts,
         const std::string& tree)
{
  std::vector<bridge_settings> settings;
  for (const std::string& text : bridge_texts)
    settings.push_back(bridge_parse(text));
  for (const std::string& text : port_texts)
    port_parse(text, settings);
  machine_check();
  loop events;
  modules modules(settings, events);
  const descriptor signals = signals_watch(events, modules);
  {
    const control_tree files(modules, events, tree);
    std::printf("kvbridged: ready at %s\n", tree.c_str());
    std::fflush(stdout);
    events.run();
  }
  private_proc_clean();
  std::fputs(modules.statistics().c_str(), stdout);
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
  CLI11_PARSE(app, argc, argv);
  try {
    if (*exec)
      private_proc_exec(tree, command);
    run(bridges, ports, tree);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kvbridged: %s\n", error.what());
    return 1;
  }
}
