// Which signals a thread takes: SIGINT and SIGTERM, which ask the process to end, are the main thread's. All others
// stay open everywhere, those of faults above all: one that is held back ends the process without a report.
#ifndef BASE_ENDING_SIGNALS_H
#define BASE_ENDING_SIGNALS_H

#include <csignal>

inline sigset_t ending_signals()
{
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  return signals;
}

// While it lives, threads that this thread starts hold both back for all their life, and so does this thread.
class ending_signals_held {
public:
  ending_signals_held()
  {
    const sigset_t held = ending_signals();
    pthread_sigmask(SIG_BLOCK, &held, &former_);
  }
  ~ending_signals_held() { pthread_sigmask(SIG_SETMASK, &former_, nullptr); }
  ending_signals_held(const ending_signals_held&) = delete;
  ending_signals_held& operator=(const ending_signals_held&) = delete;

private:
  sigset_t former_;
};

#endif
