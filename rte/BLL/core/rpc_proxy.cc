#include "rte/BLL/core/rpc_proxy.h"

#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/rpc_register.h"
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <rpc/rpc.h>
#include <sys/select.h>
#include <unistd.h>

namespace {

// The runtime refuses to know more descriptors than select can hold.
constexpr int mostDescriptors = 1024;
constexpr auto longestWait = boost::chrono::seconds(3);

bool hasOwnLoop(const std::string& name)
{
  return name != "BLLManager_mng" && name != "dhcpra_fun";
}

// A client that is gone before its reply must not end the process.
void blockSigpipe()
{
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace

void checkInterrupt()
{
  boost::this_thread::interruption_point();
}

RPCProxy::RPCProxy(startFunction_t startFunction, std::string name)
    : startFunction_(startFunction), name_(std::move(name))
{}

RPCProxy::~RPCProxy()
{
  if (!thread_.joinable())
    return;
  thread_.interrupt();
  thread_.join();
}

bool RPCProxy::start()
{
  if (!isStopped())
    return true;
  try {
    thread_ = boost::thread([this] { threadFunction(); });
  } catch (const boost::thread_resource_error&) {
    return false;
  }
  return true;
}

bool RPCProxy::stop(bool wait)
{
  if (!thread_.joinable())
    return true;
  thread_.interrupt();
  if (!wait || thread_.get_id() == boost::this_thread::get_id())
    return true;
  return thread_.try_join_for(longestWait);
}

bool RPCProxy::isStopped()
{
  if (thread_.joinable() && thread_.get_id() != boost::this_thread::get_id())
    thread_.try_join_for(boost::chrono::milliseconds(0));
  return !thread_.joinable();
}

void RPCProxy::threadFunction()
{
  BLLManager& manager = singleton<BLLManager>::instance();
  manager.registerThread(name_);
  blockSigpipe();
  try {
    startFunction_(&checkInterrupt_);
    if (!hasOwnLoop(name_))
      serve();
  } catch (const boost::thread_interrupted&) {
    std::fprintf(stderr, "[%d] %s: RPC main loop stopping.\n", getpid(), name_.c_str());
  }
  manager.unregisterThread();
}

// Returns if waiting fails; ends by boost::thread_interrupted when the proxy is stopped.
void RPCProxy::serve() const
{
  std::fprintf(stderr, "[%d] %s: Starting main RPC loop - custom made.\n", getpid(), name_.c_str());
  for (;;) {
    fd_set ready = svc_fdset;
    timeval timeout = {1, 0};
    const int count = select(mostDescriptors, &ready, nullptr, nullptr, &timeout);
    if (count < 0 && errno != EINTR) {
      std::fprintf(stderr, "[%d] %s: RPC main loop stopping (%d - %s).\n", getpid(), name_.c_str(), errno,
                   std::strerror(errno));
      return;
    }
    if (count > 0)
      svc_getreqset(&ready);
    checkInterrupt();
  }
}
