// A terminal for the reports that the agent writes to a device of the caller's naming: a pseudo terminal whose content
// is copied to standard output.
#ifndef TOOLS_PPPOEIACTL_TERMINAL_H
#define TOOLS_PPPOEIACTL_TERMINAL_H

#include <string>

class report_terminal {
public:
  // Throws std::system_error when there is no pseudo terminal to be had.
  report_terminal();
  ~report_terminal();
  report_terminal(const report_terminal&) = delete;
  report_terminal& operator=(const report_terminal&) = delete;

  // What the agent is to open.
  const std::string& path() const { return path_; }

  // All that was written so far. Call after the operation has answered.
  std::string take();

private:
  void drain();

  int master_ = -1;
  int slave_ = -1;
  std::string path_;
  std::string text_;
};

#endif
