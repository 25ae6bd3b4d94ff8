#include "rte/BLL/core/manager/library_opening.h"

#include "base/system_log.h"
#include "rte/BLL/core/manager/log_line.h"
#include <cstdlib>
#include <exception>
#include <system_error>
#include <unistd.h>

namespace {

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

}  // namespace

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
    const std::lock_guard guard(mutex_);
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
  std::unique_lock guard(mutex_);
  if (!changed_.wait_for(guard, limit, [this] { return open_; }))
    end("its constructors have not returned within " + std::to_string(limit.count()) + " seconds");
}

void libraryOpening_t::end(const std::string& reason) const
{
  logAt(LogImpl::critical) << "BLLManager, Can not load library<" << path_ << ">!\n"
                           << reason << "; the process ends.\n";
  system_log_end();
  _exit(endStatus);
}
