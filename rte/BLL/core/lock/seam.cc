#include "rte/BLL/core/lock/seam.h"

#include "rte/BLL/core/manager/log_line.h"
#include "rte/BLL/core/self_debugger.h"
#include <chrono>

namespace {

void writeToFrameworkLog(lockLogLevel_t level, const std::string& text)
{
  logAt(static_cast<LogImpl::logLevel_t>(level)) << text;
}

bool backtraceReportsEnabled()
{
  return singleton<SelfDebugger>::instance().areBacktraceReportsEnabled();
}

bool dumpBacktrace(int32_t kernelThreadId)
{
  return singleton<SelfDebugger>::instance().dumpBacktrace(kernelThreadId);
}

int64_t steadySeconds()
{
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

lockSeam_t& lockSeam()
{
  static constinit lockSeam_t seam = {writeToFrameworkLog, backtraceReportsEnabled, dumpBacktrace, steadySeconds};
  return seam;
}
