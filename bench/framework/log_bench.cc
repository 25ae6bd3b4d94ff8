// The framework log: a message that is dropped, and a line that passes beside a bare syslog call with the same text.
// The socket of the log daemon costs the same in both; where none listens, both pay for the refused attempt.
#include "rte/BLL/core/log.h"
#include "rte/BLL/core/sys_log.h"

#include <benchmark/benchmark.h>
#include <syslog.h>

namespace {

SysLog backEnd;

Log& framework()
{
  static Log& log = *[] {
    auto* const made = new Log;
    made->reset(&backEnd);
    return made;
  }();
  return log;
}

void droppedMessage(benchmark::State& state)
{
  Log& log = framework();
  for (auto _ : state) {
    log.setMsgLevel(LogImpl::debug);
    log << "Port is up, and nobody wants to know.\n";
  }
}
BENCHMARK(droppedMessage)->Threads(1)->Threads(2);

void passingLine(benchmark::State& state)
{
  Log& log = framework();
  for (auto _ : state) {
    log.setMsgLevel(LogImpl::notice);
    log << "Port is up, and somebody wants to know.\n";
  }
}
BENCHMARK(passingLine);

void bareSyslog(benchmark::State& state)
{
  for (auto _ : state)
    syslog(LOG_NOTICE, "%s", "[1234] Port is up, and somebody wants to know.\n");
}
BENCHMARK(bareSyslog);

}  // namespace
