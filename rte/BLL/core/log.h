// The framework's logger, reached as singleton<Log>::instance().
//
// A message is a level and a text. The caller sets the level of what it is about to say, then streams the text, in as
// many pieces as it likes:
//
//   Log& log = singleton<Log>::instance();
//   log.setMsgLevel(LogImpl::notice);
//   log << "Port " << 7 << " is up.\n";
//
// Each thread has a line buffer and a level of its own, so two threads may write at once, at different levels, and
// their lines never mix. A line is handed to the back-end when its newline is written, stamped with the kernel id of
// the thread: "[1234] Port 7 is up.". What a thread leaves without a newline waits in its buffer; nothing flushes it at
// the end of the process. A message passes only if its level is below the threshold, which is 3 until changed:
// critical, warning and notice pass, debug is dropped, before anything is formatted.
//
// Until a back-end is installed nothing is stored, formatted or written.
#ifndef RTE_BLL_CORE_LOG_H
#define RTE_BLL_CORE_LOG_H

#include "base/thread_annotations.h"
#include "rte/BLL/core/log_impl.h"
#include <atomic>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>
#include <cstddef>
#include <cstdint>
#include <map>
#include <sstream>
#include <string>
#include <string_view>

// Every member function may be called by any thread. boost::lock_error reaches the caller if the log lock cannot be
// had.
class Log {
public:
  Log();
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  // Installs the back-end in place of the one before. The caller owns it and keeps it for as long as anybody logs;
  // null silences the log.
  void reset(LogImpl* backEnd);
  // The threshold: messages below it pass.
  void setLogLevel(LogImpl::logLevel_t level);
  // The level of what the calling thread writes from now on; while the debug override is on, its level instead.
  void setMsgLevel(LogImpl::logLevel_t level);
  // Operators' override: with `enabled`, every later message of every thread gets `level`, whatever it asks for. An
  // override to debug therefore silences everything while the threshold is 3. Says on `out` what was done.
  void setDebugLevel(std::ostringstream* out, LogImpl::logLevel_t level, bool enabled);

  // Append to the calling thread's line. A text of more than 999 characters without a newline is cut into pieces of
  // about 1000, each ending with a note.
  Log& write(const std::string& text);
  Log& write(const char* text);
  Log& write(int number);
  Log& operator<<(const std::string& text) { return write(text); }
  Log& operator<<(const char* text) { return write(text); }
  Log& operator<<(int number) { return write(number); }
  void writeImpl(std::string_view text);

  // Appends "[<kernel thread id>] " to the buffer.
  void ThreadStamp(LogImpl::logData_t& data);

private:
  struct cache_t;

  bool passes();
  LogImpl::logData_t& ownData() TSA_REQUIRES(mutex_);
  void appendLine(LogImpl::logData_t& data, std::string_view line) TSA_REQUIRES(mutex_);
  void appendTail(LogImpl::logData_t& data, std::string_view tail) TSA_REQUIRES(mutex_);
  void handOver(LogImpl::logData_t& data) TSA_REQUIRES(mutex_);

  static thread_local cache_t cache_;

  const uint64_t serial_;  // tells this logger's entries in a thread's cache from those of another at the same address
  checked<boost::mutex> mutex_;                      // the log lock; held for the back-end's calls too
  std::atomic<LogImpl*> backEnd_ = nullptr;          // written under the lock, read anywhere
  std::atomic<int32_t> threshold_ = LogImpl::debug;  // written under the lock, read anywhere
  bool overridden_ TSA_GUARDED_BY(mutex_) = false;
  int32_t overrideLevel_ TSA_GUARDED_BY(mutex_) = 0;
  // Never shrinks: a thread may come back to its line.
  std::map<boost::thread::id, LogImpl::logData_t> threads_ TSA_GUARDED_BY(mutex_);
};

#endif
