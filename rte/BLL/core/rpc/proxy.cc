#include "rte/BLL/core/rpc_proxy.h"

#include "rte/BLL/core/lock/supervisor.h"
#include "rte/BLL/core/rpc/access.h"
#include "rte/BLL/core/rpc/server.h"
#include "rte/BLL/core/thread_registry.h"
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

constexpr auto longestStop = std::chrono::seconds(3);

// The two agents that share the framework say by their names that they serve.
RPCProxy::then_t usualFor(const std::string& name)
{
  return name == "BLLManager_mng" || name == "dhcpra_fun" ? RPCProxy::then_t::serve : RPCProxy::then_t::end;
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
    const mutex_guard guard(mutex_);
    proxies_.insert(proxy);
  }
  void forget(RPCProxy* proxy)
  {
    const mutex_guard guard(mutex_);
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
    const mutex_guard guard(mutex_);
    for (RPCProxy* const proxy : proxies_)
      proxy->stop(true);
  }

  checked_mutex mutex_;
  std::set<RPCProxy*> proxies_ TSA_GUARDED_BY(mutex_);
};

}  // namespace

void checkInterrupt()
{
  boost::this_thread::interruption_point();
}

RPCProxy::RPCProxy(startFunction_t startFunction, std::string name, then_t then)
    : startFunction_(startFunction), name_(std::move(name)), then_(then), wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{}

// NOLINTNEXTLINE(performance-unnecessary-value-param): plug-ins are built against this signature
RPCProxy::RPCProxy(startFunction_t startFunction, std::string name) : RPCProxy(startFunction, name, usualFor(name)) {}

RPCProxy::~RPCProxy()  // NOLINT(bugprone-exception-escape): only what a broken lock throws, which ends the host
{
  stop(false);
  {
    mutex_wait_guard guard(mutex_);
    ended_.wait(guard.waitable(), [this]() TSA_REQUIRES(mutex_) { return !running_; });
    reap();
  }
  startedProxies_t::instance().forget(this);
  if (wake_ >= 0)
    close(wake_);
}

bool RPCProxy::start()
{
  startedProxies_t::instance().remember(this);
  const mutex_guard guard(mutex_);
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
  mutex_wait_guard guard(mutex_);
  if (running_) {
    thread_.interrupt();
    if (wake_ >= 0)
      eventfd_write(wake_, 1);
    if (!wait || thread_.get_id() == boost::this_thread::get_id())
      return true;
    if (!ended_.wait_for(guard.waitable(), longestStop, [this]() TSA_REQUIRES(mutex_) { return !running_; }))
      return false;
  }
  reap();
  return true;
}

bool RPCProxy::isStopped()
{
  const mutex_guard guard(mutex_);
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
    const mutex_guard guard(mutex_);
    running_ = false;
    ended_.notify_all();
  });
  blockSigpipe();
  try {
    threadRegistry_t& threads = threadRegistry_t::instance();
    threads.registerThread(name_);
    const atEnd_t unregistered([&] { lockQuietly([&] { threads.unregisterThread(); }); });
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
  if (then_ == then_t::end) {
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
