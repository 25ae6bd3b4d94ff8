// A thread that registers ONC RPC services on the loopback interface and serves them.
//
// The RPC runtime keeps its transports and services in variables of the whole process, without a lock: only the proxy's
// thread touches them. So services are registered by the start function, which runs on that thread.
#pragma once

#include <boost/thread/thread.hpp>
#include <string>

// Lets code that serves in a loop of its own honour a request to stop: throws boost::thread_interrupted on a thread
// that has been interrupted.
void checkInterrupt();

class RPCProxy {
public:
  // Called once on the proxy's thread, with the address of a pointer to checkInterrupt().
  using startFunction_t = void* (*)(void*);

  // The thread registers itself under `name`. A proxy called "BLLManager_mng" or "dhcpra_fun" serves what its start
  // function registered until it is stopped; any other ends when its start function returns.
  RPCProxy(startFunction_t startFunction, std::string name);
  ~RPCProxy();  // stops and waits
  RPCProxy(const RPCProxy&) = delete;
  RPCProxy& operator=(const RPCProxy&) = delete;

  // Starts the thread, unless it runs. False if it could not be started.
  bool start();
  // Asks the thread to end, which it does within a second, and with `wait` waits for that, three seconds at most. True
  // if it has ended (with `wait`), or was asked. Called by the thread itself it never waits.
  bool stop(bool wait);
  // True when the thread has ended, or was never started.
  bool isStopped();

private:
  void threadFunction();
  void serve() const;

  boost::thread thread_;
  void (*checkInterrupt_)() = &checkInterrupt;
  startFunction_t startFunction_;
  std::string name_;
};
