// The back-end of the framework log that writes to syslog(3), by way of base/system_log.h.
#ifndef RTE_BLL_CORE_SYS_LOG_H
#define RTE_BLL_CORE_SYS_LOG_H

#include "rte/BLL/core/log_impl.h"

// openlog(3) is the business of whoever installs it.
class SysLog : public LogImpl {
public:
  // Writes the line with every tab as four blanks, at LOG_WARNING, LOG_NOTICE or LOG_DEBUG for the levels warning,
  // notice and debug, and LOG_CRIT for any other. An empty line is not written.
  void writeMessageToLog(const logData_t& data) override;
};

#endif
