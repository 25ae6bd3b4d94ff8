// Two threads that wait for each other, one of them for the framework lock: what the operator gets to read.
//
// "configuration" changes ports under the exclusive lock and then wants the counters; "statistics" holds the counters
// and then wants to read the ports. Neither can go on. Because no take waits forever, "statistics" is told so after the
// period, gives the counters back, and the process recovers; the report says who held the lock, and where it was.
#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/log.h"
#include "rte/BLL/core/self_debugger.h"
#include "rte/BLL/core/singleton.h"
#include "rte/BLL/core/thread_registry.h"
#include <boost/thread/thread.hpp>
#include <future>
#include <iostream>
#include <mutex>

namespace {

std::mutex counters;
std::promise<void> portsAreLocked, countersAreLocked;

[[gnu::noinline]] void waitForCounters()
{
  const std::lock_guard guard(counters);
  std::cout << "configuration: has the counters at last" << std::endl;
}

[[gnu::noinline]] void applyPortConfiguration()
{
  const BLLManager::exclusiveLock_t guard;
  if (!guard.isLocked())
    return;
  portsAreLocked.set_value();
  countersAreLocked.get_future().wait();
  waitForCounters();
}

void collectStatistics()
{
  const std::lock_guard hold(counters);
  countersAreLocked.set_value();
  portsAreLocked.get_future().wait();
  const BLLManager::sharedLock_t guard;
  if (!guard.isLocked())
    std::cout << "statistics: did not get the lock, gives up" << std::endl;
}

// The framework log goes to standard output here instead of the system log.
struct printedLog_t : LogImpl {
  void writeMessageToLog(const logData_t& data) override { std::cout << data.buffer << std::flush; }
};

void runAs(const char* name, void (*work)())
{
  threadRegistry_t::instance().registerThread(name);
  work();
  threadRegistry_t::instance().unregisterThread();
}

}  // namespace

int main()
{
  printedLog_t printed;
  singleton<Log>::instance().reset(&printed);
  if (!singleton<SelfDebugger>::instance().enableManualReports())  // message "reportBacktraces on"
    std::cout << "there will be no stacks" << std::endl;
  BLLManager::lock_t::lockingPeriod = boost::posix_time::seconds(3);  // five minutes unless an operator says otherwise
  boost::thread configuration([] { runAs("configuration", applyPortConfiguration); });
  boost::thread statistics([] { runAs("statistics", collectStatistics); });
  configuration.join();
  statistics.join();
  singleton<Log>::instance().reset(nullptr);
}
