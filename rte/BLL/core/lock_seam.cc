#include "rte/BLL/core/lock_seam.h"

#include <chrono>

#if __has_include("rte/BLL/core/log.h")
#include "rte/BLL/core/log.h"
#include "rte/BLL/core/singleton.h"
#endif

namespace {

void writeToFrameworkLog([[maybe_unused]] lockLogLevel_t level, [[maybe_unused]] const std::string& text)
{
#if __has_include("rte/BLL/core/log.h")
  Log& log = singleton<Log>::instance();
  log.setMsgLevel(static_cast<LogImpl::logLevel_t>(level));
  log << text;
#endif
}

// The self debugger is not part of the framework yet; until it is, there are no backtraces to report.
bool noBacktraces()
{
  return false;
}
bool noBacktrace(int32_t)
{
  return false;
}

int64_t steadySeconds()
{
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

lockSeam_t& lockSeam()
{
  static constinit lockSeam_t seam = {writeToFrameworkLog, noBacktraces, noBacktrace, steadySeconds};
  return seam;
}
