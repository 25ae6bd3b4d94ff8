// How a plug-in uses the framework lock: change under exclusive, read under shared, step aside while waiting.
#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/thread_registry.h"
#include <boost/thread/thread.hpp>
#include <chrono>
#include <iostream>
#include <thread>

namespace {

int ports = 0;  // under BLLManager::lock

bool addPort()
{
  const BLLManager::exclusiveLock_t guard;
  if (!guard.isLocked())
    return false;  // already reported: who holds it, for how long, and where
  ++ports;
  return true;
}

int countPorts()
{
  if (!BLLManager::lockCheck(lockType::read))  // leaves a report in the log if the caller forgot the lock
    return -1;
  return ports;
}

// Waits for another thread's work in the middle of its own, however deep its caller has nested the lock.
bool waitForFirstPort()
{
  BLLManager::exclusiveLock_t guard;
  if (!guard.isLocked() || !guard.unlockToOne())
    return false;
  while (guard.isLocked() && ports == 0) {
    guard.unlock();  // the one hold that is left: now others may run
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    guard.lock();
  }
  return guard.restoreUnlockedToOne();
}

}  // namespace

int main()
{
  threadRegistry_t::instance().registerThread("main");
  boost::thread adder([] {
    threadRegistry_t::instance().registerThread("adder");
    addPort();
    threadRegistry_t::instance().unregisterThread();
  });
  const BLLManager::exclusiveLock_t outer;
  const bool waited = waitForFirstPort();
  std::cout << (waited ? "ports: " : "gave up, ports: ") << countPorts() << std::endl;
  adder.join();
  threadRegistry_t::instance().unregisterThread();
  return waited ? 0 : 1;
}
