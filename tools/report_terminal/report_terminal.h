// A terminal for the reports that a daemon writes to a device of the caller's naming: a pseudo terminal whose content
// is read while it is written, so that a report of any length fits.
#ifndef TOOLS_REPORT_TERMINAL_REPORT_TERMINAL_H
#define TOOLS_REPORT_TERMINAL_REPORT_TERMINAL_H

#include <atomic>
#include <string>
#include <thread>

class report_terminal {
public:
  // Throws std::system_error when there is no pseudo terminal to be had.
  report_terminal();
  ~report_terminal();
  report_terminal(const report_terminal&) = delete;
  report_terminal& operator=(const report_terminal&) = delete;

  // What the daemon is to open.
  const std::string& path() const { return path_; }

  // All that was written; once, after the daemon has answered.
  std::string take();

private:
  void read_all();

  int master_ = -1;
  int slave_ = -1;  // keeps the terminal alive until the report is taken
  std::string path_;
  std::string text_;  // the reader's until it has ended
  std::atomic<bool> abandoned_ = false;
  std::thread reader_;  // ends when nobody has the slave open and all is read, or when the report is abandoned
};

#endif
