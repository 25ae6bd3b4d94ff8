// bllhost: a process for the plug-in entities of a board, from its first library to its last save.
#include "base/system_log.h"
#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/log.h"
#include "rte/BLL/core/rpc/access.h"
#include "rte/BLL/core/self_debugger.h"
#include "tools/bllhost/port_mapper.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

enum exit_status : int { exit_stopped = 0, exit_not_started = 1, exit_usage = 2 };  // 3: loadDynamicLibs()

struct settings {
  std::string configuration = "bll_saved.xml";
  bool save = false;
  std::string saved_before;  // empty: the file of `configuration`, once there is one
  bool log_to_stderr = false;
  std::vector<std::string> allowed_users;
};

sigset_t end_signals()
{
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  return signals;
}

// Registration is tried once, at the start. A mapper that comes later, or comes anew, knows nothing of it.
void warn_if_out_of_reach()
{
  if (mapper_knows_us())
    return;
  Log& log = singleton<Log>::instance();
  log.setMsgLevel(LogImpl::warning);
  log << "bllhost: the port mapper does not know this host, so nobody can reach it by messages; once the port mapper "
         "runs, restart bllhost.\n";
}

void wait_for_the_end(const sigset_t& signals)
{
  timespec wait = {3, 0};  // the proxy registers meanwhile
  while (sigtimedwait(&signals, nullptr, &wait) < 0) {
    if (errno == EINTR)
      continue;
    warn_if_out_of_reach();
    wait.tv_sec = 60;
  }
}

// Tells the entities where their settings are (saved_settings.h). False, and told, if what was asked for cannot work.
bool settings_in_reach(const settings& given)
{
  std::error_code unknown;  // is no folder, then
  if (given.save &&
      !std::filesystem::is_directory(std::filesystem::absolute(given.configuration).parent_path(), unknown)) {
    std::fprintf(stderr, "bllhost: --save %s: there is no such folder\n", given.configuration.c_str());
    return false;
  }
  const bool asked = !given.saved_before.empty();
  const std::string& file = asked ? given.saved_before : given.configuration;
  const bool readable = access(file.c_str(), R_OK) == 0;
  if (asked && !readable) {
    std::fprintf(stderr, "bllhost: --load %s: %m\n", file.c_str());
    return false;
  }
  if (readable && (asked || given.save))
    setenv("BLL_SAVED", std::filesystem::absolute(file).c_str(), 1);
  else
    unsetenv("BLL_SAVED");
  return true;
}

exit_status host(const settings& given)
{
  if (!singleton<SelfDebugger>::instance().installCrashReports())  // first, while the process is small and single
    std::fprintf(stderr, "bllhost: a crash will leave no report\n");
  system_log_begin("");
  const sigset_t signals = end_signals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // here and in every thread that plug-ins start
  BLLManager& manager = singleton<BLLManager>::instance();
  manager.loadDynamicLibs();
  manager.init();
  manager.applyConfiguration(given.configuration);
  if (!manager.start()) {
    std::fprintf(stderr, "bllhost: the entities could not be started; the system log says why\n");
    return exit_not_started;
  }
  wait_for_the_end(signals);
  manager.stop(given.save, given.configuration);
  return exit_stopped;
}

}  // namespace

// What nobody catches ends in a crash report, which says where it came from.
int main(int argc, char** argv)  // NOLINT(bugprone-exception-escape)
{
  settings given;
  CLI::App app(
      "Loads the plug-in libraries that the board's configuration names, starts their entities in the order of "
      "their dependences and stops them on SIGTERM or SIGINT.",
      "bllhost");
  CLI::Option* const file =
      app.add_option("--save", given.configuration, "save the entities' configuration here at the end");
  app.add_option("--load", given.saved_before,
                 "what the entities saved earlier; the file of --save, once there is one, if not given");
  app.add_flag("--log-to-stderr", given.log_to_stderr, "show what is logged on standard error too");
  app.add_option("--allow-user", given.allowed_users,
                 "serve messages of this user, or of this group's members, beside those of root and of bllhost's own "
                 "user; may be repeated")
      ->allow_extra_args(false)
      ->type_name("NAME|GROUP")
      ->each([](const std::string& name) {
        if (!rpcAllow(name))
          throw CLI::ValidationError("no user or group " + name);
      });
  app.footer("Environment: BLL_CONFIG (configuration file), BLL_BOARD_ID (file with the board's identity),\n"
             "BLL_LIB_DIR (folder of the libraries), BLL_LIB_SECONDS (the longest a library may take, 30).\n"
             "Exit status: 0 stopped on request, 1 the entities could not be started, 2 usage, 3 a library left\n"
             "nothing sound to go on with; the system log says which.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? exit_stopped : exit_usage;
  }
  given.save = file->count() > 0;
  if (!settings_in_reach(given))
    return exit_usage;
  if (given.log_to_stderr)
    setenv("BLL_LOG_STDERR", "1", 1);
  return host(given);
}
