#include "rte/BLL/core/sys_log.h"

#include "base/system_log.h"
#include <string>
#include <syslog.h>

namespace {

int priorityOf(int32_t level)
{
  switch (level) {
  case LogImpl::warning:
    return LOG_WARNING;
  case LogImpl::notice:
    return LOG_NOTICE;
  case LogImpl::debug:
    return LOG_DEBUG;
  default:
    return LOG_CRIT;
  }
}

// syslog daemons show a control character as an escape, so tabs are written out.
std::string withoutTabs(const std::string& text)
{
  std::string result;
  result.reserve(text.size());
  for (const char character : text)
    if (character == '\t')
      result.append(4, ' ');
    else
      result.push_back(character);
  return result;
}

}  // namespace

void SysLog::writeMessageToLog(const logData_t& data)
{
  if (data.buffer.empty())
    return;
  if (data.buffer.find('\t') == std::string::npos)
    system_log(priorityOf(data.msgLevel), data.buffer.c_str());
  else
    system_log(priorityOf(data.msgLevel), withoutTabs(data.buffer).c_str());
}
