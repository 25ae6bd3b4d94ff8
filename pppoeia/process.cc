#include "pppoeia/process.h"

#include <atomic>
#include <csignal>
#include <cstdint>
#include <poll.h>

namespace {

std::atomic<int32_t> pppoeia_running{1};
static_assert(std::atomic<int32_t>::is_always_lock_free, "written by a signal handler");

}  // namespace

void pppoeia_signal_handler(int number)
{
  if (number == SIGINT || number == SIGTERM)
    pppoeia_running = 0;
}

int process_signals_install()
{
  sigset_t ending;
  sigemptyset(&ending);
  sigaddset(&ending, SIGINT);
  sigaddset(&ending, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ending, nullptr);
  struct sigaction action {};
  action.sa_handler = pppoeia_signal_handler;
  sigemptyset(&action.sa_mask);
  if (sigaction(SIGINT, &action, nullptr) != 0 || sigaction(SIGTERM, &action, nullptr) != 0)
    return -1;
  return 0;
}

void process_wait_for_end()
{
  sigset_t open;
  pthread_sigmask(SIG_SETMASK, nullptr, &open);
  sigdelset(&open, SIGINT);
  sigdelset(&open, SIGTERM);
  constexpr timespec step{10, 0};
  while (pppoeia_running)
    ppoll(nullptr, 0, &step, &open);  // opens the mask and sleeps in one act: no signal falls in between
}
