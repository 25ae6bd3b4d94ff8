#include "base/system_log.h"

#include <syslog.h>

void system_log(int priority, const char* text)
{
  syslog(priority, "%s", text);
}
