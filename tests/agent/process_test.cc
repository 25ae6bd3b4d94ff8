// The process's signals and its end, in children.
#include "pppoeia/agent/process.h"
#include "tests/support/syslog_capture.h"

#include <csignal>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Status of a child that waits for its end: 1 when it did not wait for the signal.
int ended_by(int signal)
{
  int ready[2], sent[2];
  EXPECT_EQ(pipe(ready) | pipe(sent), 0);
  const pid_t child = fork();
  if (child == 0) {
    sigset_t held;
    if (process_signals_install() != 0 || pthread_sigmask(SIG_SETMASK, nullptr, &held) != 0 ||
        sigismember(&held, SIGINT) + sigismember(&held, SIGTERM) != 2)
      _exit(2);
    raise(SIGPIPE);
    pppoeia_signal_handler(SIGUSR1);
    (void)!write(ready[1], "", 1);
    process_wait_for_end();
    pollfd told{sent[0], POLLIN, 0};
    _exit(poll(&told, 1, 0) == 1 ? 0 : 1);
  }
  char byte;
  EXPECT_EQ(read(ready[0], &byte, 1), 1);
  EXPECT_EQ(write(sent[1], "", 1), 1);
  kill(child, signal);
  int status = 0;
  waitpid(child, &status, 0);
  for (const int fd : {ready[0], ready[1], sent[0], sent[1]})
    close(fd);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Process, EndsByItsTwoSignalsAndNoOther)
{
  for (int round = 0; round < 20; ++round)
    for (const int signal : {SIGINT, SIGTERM})
      ASSERT_EQ(ended_by(signal), 0) << signal;
}

// How a child ends that is held up, and what it logs; without threads as a user who may have no more of them.
pid_t held_up(bool threads, int told)
{
  const pid_t child = fork();
  if (child != 0)
    return child;
  const rlimit none{0, 0};
  if (!threads && (setrlimit(RLIMIT_NPROC, &none) != 0 || (geteuid() == 0 && setuid(54321) != 0)))
    _exit(2);
  process_end_bound();
  std::vector<std::string> lines;
  while (lines.empty()) {
    usleep(1000);
    lines = syslog_take_texts();
  }
  (void)!write(told, lines[0].data(), lines[0].size());
  pause();
  _exit(1);
}

TEST(Process, ThatIsHeldUpEndsWithinTwoSeconds)
{
  int told[2], with = 0, without = 0;
  ASSERT_EQ(pipe(told), 0);
  const pid_t children[] = {held_up(true, told[1]), held_up(false, told[1])};
  waitpid(children[0], &with, 0);
  waitpid(children[1], &without, 0);
  EXPECT_EQ(WIFEXITED(with) ? WEXITSTATUS(with) : -1, exit_cut_short);
  EXPECT_EQ(WIFSIGNALED(without) ? WTERMSIG(without) : -1, SIGALRM);
  close(told[1]);
  char line[100] = {};
  EXPECT_GT(read(told[0], line, sizeof line - 1), 0);
  EXPECT_STREQ(line, "PPPoE IA process does not end in good order.");
  close(told[0]);
}

}  // namespace
