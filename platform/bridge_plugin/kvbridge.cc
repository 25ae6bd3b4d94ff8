// Stand-in: there is no link aggregation behind it; it logs what it was asked.
#include "platform/bridge_plugin/kvbridge.h"

#include "base/system_log.h"
#include <string>
#include <syslog.h>

void kvbridge::lagTest(int step)
{
  system_log(LOG_NOTICE, ("kvbridge: link aggregation test " + std::to_string(step)).c_str());
}

void kvbridge::issLaDebugMask(int mask)
{
  system_log(LOG_NOTICE, ("kvbridge: link aggregation debug mask " + std::to_string(mask)).c_str());
}
