#include "pppoeia/agent/process.h"

#include "base/ending_signals.h"
#include "pppoeia/log.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <poll.h>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace {

std::atomic<int32_t> pppoeia_running{1};
static_assert(std::atomic<int32_t>::is_always_lock_free, "written by a signal handler");

constexpr auto end_most = std::chrono::seconds(2);
constexpr auto line_most = std::chrono::milliseconds(300);

void* tell_of_late_end(void*)
{
  std::this_thread::sleep_for(end_most);
  pppoeia_log(log_critical, "PPPoE IA process does not end in good order.");
  return nullptr;
}

void* end_now(void*)
{
  std::this_thread::sleep_for(end_most);
  std::this_thread::sleep_for(line_most);  // from when both have run again, if the machine stood still
  _exit(exit_cut_short);
}

// One that nobody joins.
bool thread_begin(void* (*routine)(void*))
{
  pthread_t thread;
  return pthread_create(&thread, nullptr, routine, nullptr) == 0 && pthread_detach(thread) == 0;
}

}  // namespace

void pppoeia_signal_handler(int number)
{
  if (number == SIGINT || number == SIGTERM)
    pppoeia_running = 0;
}

int process_signals_install()
{
  const sigset_t ending = ending_signals();
  pthread_sigmask(SIG_BLOCK, &ending, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
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

// Two threads, since the log may hold the one that tells. Without one for the end the alarm signal does it.
void process_end_bound()
{
  if (!thread_begin(end_now))
    alarm(static_cast<unsigned>(end_most.count()));
  thread_begin(tell_of_late_end);
}
