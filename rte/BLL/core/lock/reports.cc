// The texts that explain a lock: who asked, who holds, since when.
#include "rte/BLL/core/lock_guards.h"
#include "rte/BLL/core/thread_registry.h"
#include <ctime>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <unistd.h>

namespace {

using lockError_t = recursiveSharedMutex_t::lockError_t;
using stateMap_t = recursiveSharedMutex_t::stateMap_t;
using threads_t = threadRegistry_t::threads_t;

// The columns of the table, each right-aligned to its width.
constexpr int secondsWidth = 7, sharedWidth = 6, exclusiveWidth = 9, waitingWidth = 9, threadIdWidth = 10, pidWidth = 9,
              pthreadWidth = 10;
constexpr size_t ruleLength = 90;

template <typename Seconds, typename Shared, typename Exclusive, typename Waiting, typename Pid>
void writeRow(std::ostream& out, const Seconds& seconds, const Shared& shared, const Exclusive& exclusive,
              const Waiting& waiting, const std::string& threadId, const Pid& pid, const std::string& pthread,
              const std::string& name)
{
  const char* const bar = " | ";
  out << std::setw(secondsWidth) << seconds << bar << std::setw(sharedWidth) << shared << bar
      << std::setw(exclusiveWidth) << exclusive << bar << std::setw(waitingWidth) << waiting << bar
      << std::setw(threadIdWidth) << threadId << bar << std::setw(pidWidth) << pid << bar << std::setw(pthreadWidth)
      << pthread << bar << name << "\n";
}

void writeHolders(std::ostream& out, const stateMap_t& states, const threads_t& threads)
{
  const std::string rule(ruleLength, '-');
  const time_t now = std::time(nullptr);
  std::ostringstream table;  // formatted apart, so that the caller's stream flags neither matter nor change
  table << "Dump of exclusive/shared lock holders and exclusive lock waiters:\n" << rule << "\n";
  writeRow(table, "seconds", "shared", "exclusive", "wait_excl", "thread::id", "pid_t", "pthread_t", "name");
  table << rule << "\n";
  for (const auto& [id, state] : states) {
    if (state.sharedCount == 0 && state.exclusiveCount == 0 && !state.waiting)
      continue;
    writeRow(table, state.takenAt == 0 ? std::string() : std::to_string(now - state.takenAt), state.sharedCount,
             state.exclusiveCount, state.waiting, threadIdText(id), state.kernelThreadId,
             pthreadHandleText(state.pthreadHandle), threadRegistry_t::nameOf(threads, id, state.kernelThreadId));
  }
  out << table.str();
}

// What is known of the thread that asked. The table's row has lost its kernel thread id if the thread holds nothing, so
// the registry and, when a thread describes its own failure, the thread itself help out.
threadsInfo_t requesterOf(const lockError_t& error, const threads_t& threads)
{
  threadsInfo_t who{error.requester, 0, 0, {}};
  if (const auto row = error.states.find(error.requester); row != error.states.end()) {
    who.kernelThreadId = row->second.kernelThreadId;
    who.pthreadHandle = row->second.pthreadHandle;
  }
  if (who.kernelThreadId == 0 && error.requester == boost::this_thread::get_id()) {
    who.kernelThreadId = gettid();
    who.pthreadHandle = pthread_self();
  }
  if (const auto row = threads.find(error.requester); who.kernelThreadId == 0 && row != threads.end())
    return row->second;
  who.name = threadRegistry_t::nameOf(threads, who.threadId, who.kernelThreadId);
  return who;
}

}  // namespace

std::string frameworkLocks_t::getExceptionDescription(const lockError_t& error)
{
  std::ostringstream text;
  threadRegistry_t::instance().visit([&](const threads_t& threads) {
    const threadsInfo_t who = requesterOf(error, threads);
    text << "\n*** LOCK EXCEPTION: [" << who.name << "; " << threadIdText(who.threadId) << "; " << who.kernelThreadId
         << "; " << pthreadHandleText(who.pthreadHandle) << "]"
         << " failed to get " << (error.exclusiveRequested ? "exclusive" : "shared") << " lock.\n";
    writeHolders(text, error.states, threads);
  });
  return text.str();
}

std::string frameworkLocks_t::getActExceptionDescription(const lockError_t& error)
{
  return getExceptionDescription(error);
}

void frameworkLocks_t::getLockHoldersDump(std::ostream& out, const stateMap_t& states)
{
  threadRegistry_t::instance().visit([&](const threads_t& threads) { writeHolders(out, states, threads); });
}

void frameworkLocks_t::debug_showLockHolders()
{
  const stateMap_t states = lock.getStateMap();
  std::cout << "Thread requesting lock holders dump: " << threadIdText(boost::this_thread::get_id()) << "\n";
  getLockHoldersDump(std::cout, states);
  std::cout << std::flush;
}
