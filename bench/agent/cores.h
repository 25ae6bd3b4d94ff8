// The sender on one core and the loop under test on another, where there are two: left alone, the scheduler now and
// then wakes the loop on the sender's core, where it waits for the next tick.
#ifndef BENCH_AGENT_CORES_H
#define BENCH_AGENT_CORES_H

#include <pthread.h>
#include <sched.h>

enum class core { sender, loop };

// Keeps a thread on its core; best effort.
inline void keep_on(pthread_t thread, core where)
{
  cpu_set_t cores;
  CPU_ZERO(&cores);
  CPU_SET(where == core::sender ? 0 : 1, &cores);
  pthread_setaffinity_np(thread, sizeof cores, &cores);
}

// Lets a thread run anywhere again.
inline void keep_nowhere(pthread_t thread)
{
  cpu_set_t cores;
  CPU_ZERO(&cores);
  for (unsigned i = 0; i < CPU_SETSIZE; ++i)
    CPU_SET(i, &cores);
  pthread_setaffinity_np(thread, sizeof cores, &cores);
}

#endif
