// A node of a test's own: network and mount namespaces with a loopback interface, an empty /run and a /dev whose log
// socket the test reads.
#ifndef TESTS_SYSTEM_PRIVATE_NODE_H
#define TESTS_SYSTEM_PRIVATE_NODE_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

class private_node {
public:
  // Moves the calling thread, and the processes that it starts from now on, into the node. Once a process.
  // Empty, or why it cannot be had.
  std::string enter();

  // What has been sent to the log socket since the last time, a line each, without priority and time.
  std::vector<std::string> logged();
  // From now on the log socket is not read, or is again. It holds ten lines; one more may be taken at once.
  void hold_log(bool hold);
  // Waits until a line with `text` in it has been logged, some seconds at most. The lines so far are kept for logged().
  bool wait_for_log(const std::string& text);

private:
  void read_log(int socket);

  // A thread reads the socket to the end of the process: it holds ten lines, and then whoever logs has to wait.
  std::mutex mutex_;
  std::condition_variable more_;
  std::vector<std::string> lines_;  // under mutex_
  bool held_ = false;               // under mutex_
};

// Waits for the condition, some seconds at most; whether it holds.
bool wait_until(const std::function<bool()>& condition);

// A program in the background, whose output is kept.
class background {
public:
  explicit background(std::vector<std::string> command);
  ~background();  // kills it if it still runs
  background(const background&) = delete;
  background& operator=(const background&) = delete;

  void signal(int number) const;
  // Sends SIGTERM and waits; the exit status, or -1 if it ended in another way or not at all.
  int end();
  // Waits for it to end by itself, some seconds at most; the same.
  int wait();
  // The signal that ended it, or 0.
  int ended_by() const { return ended_by_; }
  std::string output() const;
  int pid() const { return pid_; }

private:
  int pid_ = -1;
  int ended_by_ = 0;
  int output_ = -1;
};

#endif
