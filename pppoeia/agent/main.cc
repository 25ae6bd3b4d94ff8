// The agent's process: serves management requests until SIGINT or SIGTERM. It does not initialise the agent; that is
// the first request of the management plane.
#include "base/system_log.h"
#include "pppoeia/agent/process.h"
#include "pppoeia/log.h"
#include "pppoeia/operations/dispatcher.h"
#include "pppoeia/pppoeia.h"
#include "pppoeia/records.h"
#include "pppoeia/status/status_server.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace {

[[noreturn]] void give_up(const char* why)
{
  pppoeia_log(log_error, "%s", why);
  std::exit(EXIT_FAILURE);
}

}  // namespace

int main(int, char** argv)
{
  constexpr ippcServer server{"/var/run/pppoeia_fe_main", pppoeia_ippc_dispatcher, 0};
  std::fprintf(stderr, "[%d] ----> %s\n", static_cast<int>(getpid()), argv[0]);
  system_log_begin("[PPPoE] ");
  pppoeia_log(log_info, "PPPoE IA process started.");
  if (process_signals_install() != 0)
    give_up("Error installing signal handlers.");
  if (kvInitIppc() != 0)
    give_up("Error initializing IPPC.");
  if (kvStartIppcServer(&server) != 0)
    give_up("Error starting IPPC server.");
  status_begin();
  pppoeia_log(log_info, "PPPoE IA API ready. Accepting IPPC connections.");
  process_wait_for_end();
  process_end_bound();
  pppoeia_requests_end();
  status_end();
  if (pppoeia_globals.load())
    pppoeia_fini();
  pppoeia_log(log_info, "PPPoE IA process exiting.");
  return EXIT_SUCCESS;
}
