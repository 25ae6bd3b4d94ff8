// The process's signals, in a child.
#include "pppoeia/agent/process.h"

#include <csignal>
#include <gtest/gtest.h>
#include <poll.h>
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
    if (process_signals_install() != 0)
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

}  // namespace
