#include "rte/BLL/core/thread_registry.h"

#include "rte/BLL/core/log/log_line.h"
#include "rte/BLL/core/self_debugger.h"
#include <pthread.h>
#include <sstream>
#include <unistd.h>

namespace {

void logRegistration(const std::string& what, const threadsInfo_t& thread)
{
  logAt(LogImpl::notice) << "BLLManager: thread " + what + ": " + thread.name + " (" +
                                std::to_string(thread.kernelThreadId) + ")\n";
}

}  // namespace

threadRegistry_t& threadRegistry_t::instance()
{
  static threadRegistry_t* const registry = new threadRegistry_t;
  return *registry;
}

void threadRegistry_t::registerThread(const std::string& name)
{
  SelfDebugger::prepareThread();
  const threadsInfo_t info{boost::this_thread::get_id(), gettid(), pthread_self(), name};
  {
    const mutex_guard guard(mutex_);
    threads_[info.threadId] = info;
  }
  logRegistration("registered", info);
}

void threadRegistry_t::unregisterThread()
{
  threads_t::node_type removed;
  {
    const mutex_guard guard(mutex_);
    removed = threads_.extract(boost::this_thread::get_id());
  }
  if (removed)
    logRegistration("unregistered", removed.mapped());
}

void threadRegistry_t::showThreads(std::ostream& out) const
{
  visit([&](const threads_t& threads) {
    out << "Currently registered threads (" << threads.size() << "):\n";
    writeThreadHeader(out);
    for (const auto& [id, thread] : threads)
      writeThreadRow(out, thread);
  });
}

std::string threadRegistry_t::nameOf(const threads_t& threads, boost::thread::id id, int32_t kernelThreadId)
{
  if (const auto row = threads.find(id); row != threads.end())
    if (kernelThreadId == 0 || row->second.kernelThreadId == kernelThreadId)
      return row->second.name;
  for (const auto& [rowId, thread] : threads)
    if (kernelThreadId != 0 && thread.kernelThreadId == kernelThreadId)
      return thread.name;
  return {};
}

std::string threadIdText(boost::thread::id id)
{
  std::ostringstream text;
  if (id != boost::thread::id())
    text << "0x";
  text << id;
  return text.str();
}

std::string pthreadHandleText(uint64_t handle)
{
  std::ostringstream text;
  text << "0x" << std::hex << handle;
  return text.str();
}

void writeThreadHeader(std::ostream& out)
{
  out << "thread::id"
      << " | "
      << "pid_t"
      << " | "
      << "pthread_t"
      << " | "
      << "name\n";
}

void writeThreadRow(std::ostream& out, const threadsInfo_t& thread)
{
  out << threadIdText(thread.threadId) << " | " << thread.kernelThreadId << " | "
      << pthreadHandleText(thread.pthreadHandle) << " | " << thread.name << "\n";
}
