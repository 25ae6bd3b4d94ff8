// A thread that registers ONC RPC services on the loopback interface and serves them.
//
// Services are registered by the start function, which runs on the proxy's thread. Each proxy serves its own ones, one
// request at a time, and several proxies do so side by side: a request that takes long holds up no other proxy's.
#ifndef RTE_BLL_CORE_RPC_PROXY_H
#define RTE_BLL_CORE_RPC_PROXY_H

#include "base/thread_annotations.h"
#include <boost/thread/thread.hpp>
#include <condition_variable>
#include <string>

class rpcServer_t;

// Lets code that serves in a loop of its own honour a request to stop: throws boost::thread_interrupted on a thread
// that has been interrupted.
void checkInterrupt();

// start(), stop() and isStopped() may be called by any thread. A proxy that still runs when the process exits is
// stopped before the objects of the libraries that were loaded before its start are destroyed: its thread calls them.
class RPCProxy {
public:
  // Called once on the proxy's thread, with the address of a pointer to checkInterrupt().
  using startFunction_t = void* (*)(void*);

  // What the thread does when its start function returns: it serves what that has registered until the proxy is
  // stopped, or it ends.
  enum class then_t { serve, end };

  // The thread registers itself under `name`.
  RPCProxy(startFunction_t startFunction, std::string name, then_t then);
  // The same; a proxy called "BLLManager_mng" or "dhcpra_fun" serves, any other ends.
  RPCProxy(startFunction_t startFunction, std::string name);
  // Stops and waits; never on the proxy's own thread.
  ~RPCProxy();  // NOLINT(bugprone-exception-escape): only what a broken lock throws, which ends the host
  RPCProxy(const RPCProxy&) = delete;
  RPCProxy& operator=(const RPCProxy&) = delete;

  // Starts the thread, unless it runs. False if it could not be started.
  bool start();
  // Asks the thread to end, which it does when it has handled what it is at, and with `wait` waits for that, three
  // seconds at most. True if it has ended (with `wait`), or was asked. Called by the thread itself it never waits.
  bool stop(bool wait);
  // True when the thread has ended, or was never started.
  bool isStopped();

private:
  void threadFunction();
  void run();
  void serve(rpcServer_t& server) const;
  void reap() TSA_REQUIRES(mutex_);

  checked_mutex mutex_;
  bool running_ TSA_GUARDED_BY(mutex_) = false;
  std::condition_variable ended_;
  boost::thread thread_ TSA_GUARDED_BY(mutex_);
  void (*checkInterrupt_)() = &checkInterrupt;
  startFunction_t startFunction_;
  std::string name_;
  then_t then_;
  int wake_ = -1;  // an event that ends the wait for input; -1 where there is none: then it ends within a second
};

#endif
