// The framework's own way to its log: a level, then the text.
#ifndef RTE_BLL_CORE_LOG_LOG_LINE_H
#define RTE_BLL_CORE_LOG_LOG_LINE_H

#include "rte/BLL/core/log.h"
#include "rte/BLL/core/singleton.h"

inline Log& logAt(LogImpl::logLevel_t level)
{
  Log& log = singleton<Log>::instance();
  log.setMsgLevel(level);
  return log;
}

#endif
