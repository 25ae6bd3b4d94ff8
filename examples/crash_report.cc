// Crashes in the way that is asked for, on purpose; its report is shown in docs/framework-crash.md.
#include "rte/BLL/core/self_debugger.h"
#include "rte/BLL/core/singleton.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace {

volatile int sink;
volatile bool goOn = true;

// Unseen by UBSan, so that it is the processor that objects.
[[gnu::noinline, gnu::no_sanitize("undefined")]] void writeThroughNull(volatile int* target)
{
  *target = 1;
  sink = 2;
}

void (*volatile nothing)() = nullptr;

[[gnu::noinline, gnu::no_sanitize("undefined")]] void callThroughNull()
{
  nothing();
  sink = 3;
}

[[gnu::noinline]] void giveUp()
{
  std::abort();
}

[[gnu::noinline]] int recurseForEver(int depth)
{
  volatile char room[1024];
  room[0] = static_cast<char>(depth);
  return goOn ? recurseForEver(depth + 1) + room[0] : depth;
}

// A second thread, which has nothing to do with it and is in the report all the same.
[[gnu::noinline]] void waitForWork(std::promise<void>& ready)
{
  ready.set_value();
  for (;;)
    pause();
}

void startWorker()
{
  std::promise<void> ready;
  std::thread([&] {
    pthread_setname_np(pthread_self(), "worker");
    waitForWork(ready);
  }).detach();
  ready.get_future().wait();
}

}  // namespace

int main(int argc, char** argv)
{
  const char* const how = argc == 2 ? argv[1] : "";
  if (!singleton<SelfDebugger>::instance().installCrashReports())
    std::fprintf(stderr, "there will be no report\n");
  startWorker();
  if (std::strcmp(how, "null") == 0)
    writeThroughNull(nullptr);
  else if (std::strcmp(how, "call") == 0)
    callThroughNull();
  else if (std::strcmp(how, "abort") == 0)
    giveUp();
  else if (std::strcmp(how, "stack") == 0)
    sink = recurseForEver(0);
  std::fprintf(stderr, "usage: crash_report null|call|abort|stack\n");
  return 2;
}
