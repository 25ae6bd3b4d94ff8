// Stand-in: there is no link aggregation behind it; it logs what it was asked.
#include "platform/bridge_plugin/kvbridge.h"

#include <syslog.h>

void kvbridge::lagTest(int step)
{
  syslog(LOG_NOTICE, "kvbridge: link aggregation test %d", step);
}

void kvbridge::issLaDebugMask(int mask)
{
  syslog(LOG_NOTICE, "kvbridge: link aggregation debug mask %d", mask);
}
