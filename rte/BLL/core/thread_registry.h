// The table of the process's named threads: lock reports and the message "threads" show its names.
#ifndef RTE_BLL_CORE_THREAD_REGISTRY_H
#define RTE_BLL_CORE_THREAD_REGISTRY_H

#include "base/thread_annotations.h"
#include <boost/thread/thread.hpp>
#include <cstdint>
#include <map>
#include <ostream>
#include <string>

// What is known of a registered thread.
struct threadsInfo_t {
  boost::thread::id threadId;
  int32_t kernelThreadId = 0;
  uint64_t pthreadHandle = 0;
  std::string name;
};

// One object a process. Every member function may be called by any thread; each takes the registry's own mutex, and
// none calls out (to the log or elsewhere) while holding it.
class threadRegistry_t {
public:
  using threads_t = std::map<boost::thread::id, threadsInfo_t>;

  // Never destroyed, so that threads may end after main() has returned.
  static threadRegistry_t& instance();

  // Enters the calling thread, replacing what it was called before, and logs it.
  void registerThread(const std::string& name);
  // Removes the calling thread's row and logs it; does nothing for a thread that is not registered.
  void unregisterThread();
  // "Currently registered threads (N):" and one row a thread.
  void showThreads(std::ostream& out) const;

  // Calls `format(threads)` with the table, under the mutex; for reports that name many threads at one moment.
  template <typename Format>
  void visit(Format&& format) const
  {
    const mutex_guard guard(mutex_);
    format(threads_);
  }

  // The name of a thread in a table handed out by visit(): the row of `id` if it is the same kernel thread, otherwise
  // the row of that kernel thread. 0 as `kernelThreadId` means it is not known. Empty if the thread has no row; a row
  // left behind by a dead thread does not name the next owner of its id.
  static std::string nameOf(const threads_t& threads, boost::thread::id id, int32_t kernelThreadId);

private:
  threadRegistry_t() = default;
  mutable checked_mutex mutex_;
  threads_t threads_ TSA_GUARDED_BY(mutex_);
};

// The id as the thread library prints it, with "0x" in front; "{Not-any-thread}" for the id of no thread.
std::string threadIdText(boost::thread::id id);
// "0x" and the handle in hexadecimal.
std::string pthreadHandleText(uint64_t handle);
// The columns "thread::id | pid_t | pthread_t | name": the header line, and one row.
void writeThreadHeader(std::ostream& out);
void writeThreadRow(std::ostream& out, const threadsInfo_t& thread);

#endif
