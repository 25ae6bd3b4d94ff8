#include "rte/BLL/core/rpc_proxy.h"

#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/lock/supervisor.h"
#include "rte/BLL/core/rpc/access.h"
#include "rte/BLL/core/rpc/server.h"
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <sys/eventfd.h>
#include <unistd.h>

namespace {

constexpr auto longestWait = std::chrono::seconds(3);

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

// Other people's code has thrown on the thread; the process goes on without what it served.
void reportEnd(const std::string& name, const char* reason)
{
  std::fprintf(stderr, "[%d] %s: RPC main loop stopping (%s).\n", getpid(), name.c_str(), reason);
}

// Does something at the end of its scope, however that comes.
template <typename Action>
class atEnd_t {
public:
  explicit atEnd_t(Action action) : action_(std::move(action)) {}
  ~atEnd_t() { action_(); }
  atEnd_t(const atEnd_t&) = delete;
  atEnd_t& operator=(const atEnd_t&) = delete;

private:
  Action action_;
};

// The proxies that have been started: their threads must not outlive what they call when the process exits.
class startedProxies_t {
public:
  void remember(RPCProxy* proxy)
  {
    static const int stopsAtExit = std::atexit([] { instance().stopAll(); });
    (void)stopsAtExit;
    const std::lock_guard guard(mutex_);
    proxies_.insert(proxy);
  }
  void forget(RPCProxy* proxy)
  {
    const std::lock_guard guard(mutex_);
    proxies_.erase(proxy);
  }
  static startedProxies_t& instance()
  {
    static startedProxies_t& all = *new startedProxies_t;
    return all;
  }

private:
  void stopAll()
  {
    const std::lock_guard guard(mutex_);
    for (RPCProxy* const proxy : proxies_)
      proxy->stop(true);
  }

  std::mutex mutex_;
  std::set<RPCProxy*> proxies_;
};

}  // namespace

void checkInterrupt()
{
  boost::this_thread::interruption_point();
}

RPCProxy::RPCProxy(startFunction_t startFunction, std::string name)
    : startFunction_(startFunction), name_(std::move(name)), wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{}

RPCProxy::~RPCProxy()
{
  stop(false);
  {
    std::unique_lock guard(mutex_);
    ended_.wait(guard, [this] { return !running_; });
    reap();
  }
  startedProxies_t::instance().forget(this);
  if (wake_ >= 0)
    close(wake_);
}

bool RPCProxy::start()
{
  startedProxies_t::instance().remember(this);
  const std::lock_guard guard(mutex_);
  if (running_)
    return true;
  reap();
  try {
    thread_ = boost::thread([this] { threadFunction(); });
  } catch (const boost::thread_resource_error&) {
    return false;
  }
  running_ = true;
  return true;
}

bool RPCProxy::stop(bool wait)
{
  std::unique_lock guard(mutex_);
  if (running_) {
    thread_.interrupt();
    if (wake_ >= 0)
      eventfd_write(wake_, 1);
    if (!wait || thread_.get_id() == boost::this_thread::get_id())
      return true;
    if (!ended_.wait_for(guard, longestWait, [this] { return !running_; }))
      return false;
  }
  reap();
  return true;
}

bool RPCProxy::isStopped()
{
  const std::lock_guard guard(mutex_);
  if (running_)
    return false;
  reap();
  return true;
}

// Joins a thread that has ended.
void RPCProxy::reap()
{
  const boost::this_thread::disable_interruption uninterrupted;
  if (thread_.joinable())
    thread_.join();
}

void RPCProxy::threadFunction()
{
  const atEnd_t ended([this] {
    const std::lock_guard guard(mutex_);
    running_ = false;
    ended_.notify_all();
  });
  blockSigpipe();
  try {
    BLLManager& manager = singleton<BLLManager>::instance();
    manager.registerThread(name_);
    const atEnd_t unregistered([&] { lockQuietly([&] { manager.unregisterThread(); }); });
    run();
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (const boost::thread_interrupted&) {
    // stopped before or without the loop
  } catch (const std::exception& error) {
    reportEnd(name_, error.what());
  } catch (...) {
    reportEnd(name_, "something that is no std::exception");
  }
}

void RPCProxy::run()
{
  if (hasOwnLoop(name_)) {
    startFunction_(&checkInterrupt_);
    return;
  }
  rpcServer_t server(rpcAdmit);
  startFunction_(&checkInterrupt_);
  server.adoptLibraryTransports();
  try {
    serve(server);
  } catch (const boost::thread_interrupted&) {
    std::fprintf(stderr, "[%d] %s: RPC main loop stopping.\n", getpid(), name_.c_str());
  }
}

// Returns if waiting fails; ends by boost::thread_interrupted when the proxy is stopped.
void RPCProxy::serve(rpcServer_t& server) const
{
  std::fprintf(stderr, "[%d] %s: Starting main RPC loop - custom made.\n", getpid(), name_.c_str());
  while (server.serve(wake_))
    checkInterrupt();
  std::fprintf(stderr, "[%d] %s: RPC main loop stopping (%d - %s).\n", getpid(), name_.c_str(), errno,
               std::strerror(errno));
}
