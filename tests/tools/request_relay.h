// Stands between a tool and its agent, counts the requests, and kills the tool at one of them, or hangs up.
#ifndef TESTS_TOOLS_REQUEST_RELAY_H
#define TESTS_TOOLS_REQUEST_RELAY_H

#include <atomic>
#include <string>
#include <thread>

class request_relay {
public:
  // Serves a socket of its own; one connection at a time.
  explicit request_relay(std::string agent_socket);
  ~request_relay();
  request_relay(const request_relay&) = delete;
  request_relay& operator=(const request_relay&) = delete;

  const std::string& socket() const { return socket_; }

  // Requests of the connection made last.
  size_t count() const { return count_; }

  // The next connection's tool is killed at that request, counted from one: as long as the request is on its way, or
  // once the agent has done it. What it sent behind that is lost. 0: none is killed.
  void kill_at(size_t request, bool done);
  // The same, but the tool finds its agent gone.
  void hang_up_at(size_t request, bool done);

private:
  void serve();
  void pass(int tool, int agent);

  std::string agent_socket_;
  std::string socket_;
  int listener_ = -1;
  std::atomic<size_t> count_{0};
  std::atomic<size_t> kill_at_{0};
  std::atomic<bool> done_{false};
  std::atomic<bool> hang_up_{false};
  std::thread thread_;
};

#endif
