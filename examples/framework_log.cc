// The framework log as docs/framework.md explains it, with a back-end of its own instead of the system log's.
#include "rte/BLL/core/log.h"
#include "rte/BLL/core/singleton.h"

#include <cstdio>

namespace {

class standardOutput_t : public LogImpl {
public:
  void writeMessageToLog(const logData_t& data) override { std::printf("%d %s", data.msgLevel, data.buffer.c_str()); }
};

}  // namespace

int main()
{
  standardOutput_t output;
  Log& log = singleton<Log>::instance();
  log.reset(&output);

  log.setMsgLevel(LogImpl::notice);
  log << "Port " << 7 << " is up.\n";
  log.setMsgLevel(LogImpl::debug);
  log << "Nobody reads this: debug is not below the threshold.\n";
  log.reset(nullptr);  // the back-end ends before the log does
}
