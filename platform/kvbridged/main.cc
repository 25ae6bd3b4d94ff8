// kvbridged: the node's kernel modules kvbridge and kvmng in user space, for real traffic on a stock kernel.
#include "platform/kvbridged/control_tree.h"
#include "platform/kvbridged/kernel_bridges.h"
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

// What `run` was told.
struct run_words {
  std::vector<std::string> bridges, ports, kernel_bridges, uplinks;
  std::string mode = "closed";
  std::string rate;
};

kernel_settings kernel_settings_of(const run_words& words)
{
  kernel_settings kernel;
  kernel.uplinks.insert(words.uplinks.begin(), words.uplinks.end());
  kernel.mode = words.mode == "open" ? when_down::open : when_down::closed;
  if (!words.rate.empty())
    kernel.rate = padi_rate_parse(words.rate);
  return kernel;
}

// A port without a comma is one of a kernel bridge.
std::vector<bridge_settings> settings_of(const run_words& words)
{
  std::vector<bridge_settings> settings;
  kernel_settings kernel = kernel_settings_of(words);
  for (const std::string& text : words.bridges)
    settings.push_back(bridge_parse(text));
  for (const std::string& text : words.ports)
    if (text.find(',') == std::string::npos)
      port_number_parse(text, kernel);
    else
      port_parse(text, settings);
  for (const std::string& text : words.kernel_bridges)
    settings.emplace_back(bridge_parse(text)).kernel = kernel;
  if (settings.empty())
    throw fatal("no --bridge and no --kernel-bridge");
  return settings;
}

void run_options(CLI::App& serve, run_words& words)
{
  serve.add_option("--bridge", words.bridges, "NAME[,stag=0x88a8][,mtu=1500]: a bridge of kvbridged's own");
  serve.add_option("--kernel-bridge", words.kernel_bridges,
                   "NAME[,stag=0x88a8][,mtu=1500]: a bridge of the kernel's, which forwards all but discovery frames");
  serve.add_option("--uplink", words.uplinks,
                   "INTERFACE: a network port of a kernel bridge; all others are subscribers'");
  serve.add_option("--port", words.ports,
                   "BRIDGE,PORT,subscriber|network,INTERFACE[,addresses=1024]: a port of a bridge of kvbridged's own; "
                   "INTERFACE=PORT: the number of a kernel bridge's port, else what its name ends in");
  serve.add_option("--when-down", words.mode, "What becomes of a kernel bridge's discovery frames without an agent")
      ->check(CLI::IsMember({"closed", "open"}))
      ->capture_default_str();
  serve.add_option("--padi-rate", words.rate,
                   "COUNT[,burst=COUNT]: PADI a second that a subscriber's port of a kernel bridge may send; no limit "
                   "if not given");
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
try {
  std::string tree = default_tree;
  run_words words;
  std::vector<std::string> command;
  std::string released;
  bool as_json = false;
  CLI::App app{"Plays the kernel modules kvbridge and kvmng in user space.", "kvbridged"};
  app.require_subcommand(1);
  app.add_option("--tree", tree, "Where the control files are mounted")->capture_default_str();
  CLI::App* serve = app.add_subcommand("run", "Serve bridges until SIGINT or SIGTERM; SIGUSR1 prints statistics");
  run_options(*serve, words);
  CLI::App* exec = app.add_subcommand("exec", "Run a command that sees the control files in /proc/net");
  exec->add_option("command", command, "The command and its arguments, behind --")->required();
  CLI::App* status = app.add_subcommand("status", "Show what becomes of the discovery frames of kernel bridges");
  status->add_flag("--json", as_json, "As JSON");
  CLI::App* release = app.add_subcommand("release", "Take off what a kvbridged that is gone left at a kernel bridge");
  release->add_option("bridge", released, "The bridge")->required();
  std::vector<bridge_settings> settings;
  try {
    app.parse(argc, argv);
    if (*serve)
      settings = settings_of(words);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : wrong_usage;
  } catch (const fatal& error) {
    return say(error, wrong_usage);
  }
  if (*exec)
    private_proc_exec(tree, command);
  else if (*status)
    std::fputs(kernel_status(as_json).c_str(), stdout);
  else if (*release)
    std::fputs(kernel_release(released).c_str(), stdout);
  else
    run(settings, tree);
  return 0;
} catch (const std::exception& error) {
  return say(error, failure);
}
