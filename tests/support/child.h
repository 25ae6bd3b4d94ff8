// Work in a process of its own, for what cannot be taken back.
#ifndef TESTS_SUPPORT_CHILD_H
#define TESTS_SUPPORT_CHILD_H

#include <sys/wait.h>
#include <unistd.h>

// How a child ended that exits with what `work` answers, as waitpid(2) gives it.
template <typename Work>
int in_child(Work work)
{
  const pid_t child = fork();
  if (child == 0)
    _exit(work());
  int status = -1;
  waitpid(child, &status, 0);
  return status;
}

#endif
