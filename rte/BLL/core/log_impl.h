// What stands behind the framework log: takes complete lines and puts them where they are kept.
#ifndef RTE_BLL_CORE_LOG_IMPL_H
#define RTE_BLL_CORE_LOG_IMPL_H

#include <cstdint>
#include <string>

class LogImpl {
public:
  // How severe a message is; lower is more severe.
  enum logLevel_t : int {
    critical = 0,
    warning = 1,
    notice = 2,
    debug = 3,
  };

  // One a thread that has logged or set a level.
  struct logData_t {
    int32_t msgLevel = 0;        // the level of the thread's current message
    std::string buffer;          // its unfinished line; begins with the thread stamp once anything was written
    int32_t kernelThreadId = 0;  // gettid(2); 0 until the thread first writes
  };

  virtual ~LogImpl() = default;

  // `data.buffer` holds one stamped line with its newline. Called by the thread that wrote it, with the log lock held:
  // it must not log through the framework log. There is no result; a line that cannot be kept is lost.
  virtual void writeMessageToLog(const logData_t& data) = 0;
};

#endif
