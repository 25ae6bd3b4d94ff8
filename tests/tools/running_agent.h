// The tools' programs as a user runs them: an agent on a kernel in memory, and pppoeiactl called on its socket.
#ifndef TESTS_TOOLS_RUNNING_AGENT_H
#define TESTS_TOOLS_RUNNING_AGENT_H

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

// How a program ended, and what it printed.
struct outcome {
  int status = -1;
  std::string out;
  std::string err;

  nlohmann::json json() const { return nlohmann::json::parse(out); }  // throws for text that is no valid UTF-8
};

// Runs a program to its end with `input` on its standard input.
outcome run(const std::vector<std::string>& command, const std::string& input = {});

// pppoeiactl on a socket.
outcome ctl(const std::string& socket, std::vector<std::string> arguments, const std::string& input = {});

// A name for a socket of this process that no other uses.
std::string fresh_socket();

// Expects the text to be that of a file of this folder. TOOLS_WRITE=1 writes the file anew, to be looked through.
void expect_as_written(const std::string& told, const std::string& file);

// One agent, from the moment its socket answers until it is destroyed.
class running_agent {
public:
  running_agent();
  ~running_agent();
  running_agent(const running_agent&) = delete;
  running_agent& operator=(const running_agent&) = delete;

  const std::string& socket() const { return socket_; }
  int pid() const { return pid_; }

  outcome ctl(std::vector<std::string> arguments) const { return ::ctl(socket_, std::move(arguments)); }
  // The lines of a batch.
  outcome batch(const std::string& lines) const { return ::ctl(socket_, {"-batch", "-"}, lines); }
  // What a command prints that must succeed.
  std::string told(std::vector<std::string> arguments) const;

private:
  std::string socket_;
  int pid_ = -1;
  int alive_ = -1;  // the agent ends when this is closed
};

#endif
