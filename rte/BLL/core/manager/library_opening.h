// The time in which a library's constructors run. Not installed.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <sys/types.h>
#include <thread>

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
  std::mutex mutex_;
  std::condition_variable changed_;
  bool open_ = false;  // dlopen() has returned
  std::thread watcher_;
};
