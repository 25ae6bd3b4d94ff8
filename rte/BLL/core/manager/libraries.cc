// Opening the plug-in libraries.
#include "rte/BLL/core/framework_abi.h"
#include "rte/BLL/core/manager/log_line.h"
#include "rte/BLL/core/manager/parts.h"

#include "base/system_log.h"
#include "base/thread_annotations.h"
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <dlfcn.h>
#include <exception>
#include <system_error>
#include <thread>
#include <unistd.h>

const char bll_framework_abi_2 = 0;

namespace {

// A plug-in's constructors run inside dlopen(), which holds the loader's lock. When they throw, call exit() or do not
// return, the lock stays held, and whatever looks up a symbol later, a name service behind any library call, would hang
// without a word. There is nothing sound to go on with. So for as long as one of these lives on the thread that calls
// dlopen(), each of the three is told in the log, with the library's name, and ends the process with status
// `endStatus`, without running any destructors. A fork()ed child's exit() is its own affair.
class libraryOpening_t {
public:
  static constexpr int endStatus = 3;

  // `limit`: how long the constructors may take. Without a thread to watch them they may take for ever.
  libraryOpening_t(std::string path, std::chrono::seconds limit);
  ~libraryOpening_t();
  libraryOpening_t(const libraryOpening_t&) = delete;
  libraryOpening_t& operator=(const libraryOpening_t&) = delete;

private:
  static void onTerminate();
  static void onExit();
  void watch(std::chrono::seconds limit);
  [[noreturn]] void end(const std::string& reason) const;

  const std::string path_;
  const pid_t process_;
  checked_mutex mutex_;
  std::condition_variable changed_;
  bool open_ TSA_GUARDED_BY(mutex_) = false;  // dlopen() has returned
  std::thread watcher_;
};

constinit thread_local libraryOpening_t* underWay = nullptr;
std::terminate_handler terminateOtherwise = nullptr;

// What is being handled, as a text to put behind "thrown".
std::string thrownText(const std::exception_ptr& thrown)
{
  try {
    std::rethrow_exception(thrown);
  } catch (const std::exception& error) {
    return std::string(": ") + error.what();
  } catch (...) {
    return {};
  }
}

libraryOpening_t::libraryOpening_t(std::string path, std::chrono::seconds limit)
    : path_(std::move(path)), process_(getpid())
{
  static const bool handlersAreSet = [] {
    terminateOtherwise = std::set_terminate(onTerminate);
    return std::atexit(onExit) == 0;
  }();
  (void)handlersAreSet;
  try {
    watcher_ = std::thread([this, limit] { watch(limit); });
  } catch (const std::system_error& error) {
    logAt(LogImpl::warning) << "BLLManager, nobody watches how long library <" << path_ << "> takes: " << error.what()
                            << "\n";
  }
  underWay = this;
}

libraryOpening_t::~libraryOpening_t()
{
  underWay = nullptr;
  {
    const mutex_guard guard(mutex_);
    open_ = true;
  }
  changed_.notify_one();
  if (watcher_.joinable())
    watcher_.join();
}

// dlopen() is declared not to throw, so an exception that reaches it finds no handler and comes here.
void libraryOpening_t::onTerminate()
{
  const std::exception_ptr thrown = std::current_exception();
  if (underWay && thrown)
    underWay->end("its constructors have thrown" + thrownText(thrown));
  if (terminateOtherwise)
    terminateOtherwise();
  std::abort();
}

void libraryOpening_t::onExit()
{
  if (underWay && underWay->process_ == getpid())
    underWay->end("its constructors have called exit");
}

void libraryOpening_t::watch(std::chrono::seconds limit)
{
  mutex_wait_guard guard(mutex_);
  if (!changed_.wait_for(guard.waitable(), limit, [this]() TSA_REQUIRES(mutex_) { return open_; }))
    end("its constructors have not returned within " + std::to_string(limit.count()) + " seconds");
}

void libraryOpening_t::end(const std::string& reason) const
{
  logAt(LogImpl::critical) << "BLLManager, Can not load library<" << path_ << ">!\n"
                           << reason << "; the process ends.\n";
  system_log_end();
  _exit(endStatus);
}

// How long the constructors of one library may take: a whole number of seconds from 1 on.
std::chrono::seconds timeLimit()
{
  constexpr long usual = 30, longest = 24 * 3600;
  const char* const asked = std::getenv("BLL_LIB_SECONDS");
  const long seconds = asked ? std::strtol(asked, nullptr, 10) : 0;
  return std::chrono::seconds(seconds < 1 ? usual : std::min(seconds, longest));
}

// Empty, or why the library is not open. Libraries stay open for the life of the process, as their entities do.
std::string openLibrary(const std::string& path)
{
  const libraryOpening_t opening(path, timeLimit());
  if (dlopen(path.c_str(), RTLD_LAZY | RTLD_GLOBAL))
    return {};
  const char* const text = dlerror();
  return text ? text : "unknown reason";
}

}  // namespace

int BLLManager::loadDynamicLibs()
{
  for (const std::string& name : parts_->board.libraries()) {
    const std::string path = board_t::libraryPath(name);
    if (void* const resident = dlopen(path.c_str(), RTLD_LAZY | RTLD_GLOBAL | RTLD_NOLOAD)) {
      dlclose(resident);  // only asked: the library is as often open as before
      logAt(LogImpl::warning) << "BLLManager, library <" << path << "> has been already loaded!\n";
      continue;
    }
    if (const std::string reason = openLibrary(path); reason.empty())
      logAt(LogImpl::notice) << "BLLManager, library <" << path << "> successfully loaded.\n";
    else
      logAt(LogImpl::critical) << "BLLManager, Can not load library<" << path << ">!\n" << reason << "\n";
  }
  return 0;
}
