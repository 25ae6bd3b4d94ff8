// Stands in for a terminal where a daemon is to write a report to a device of the caller's naming: a file, since a
// terminal or a pipe takes no more at a time than it has room for, and the daemon does not wait for a reader.
#ifndef TOOLS_REPORT_TERMINAL_REPORT_TERMINAL_H
#define TOOLS_REPORT_TERMINAL_REPORT_TERMINAL_H

#include <string>

class report_terminal {
public:
  // In /dev/shm, which daemons see too that have a /tmp of their own, or else in the folder for temporary files.
  // Throws std::system_error when neither takes a file.
  report_terminal();
  ~report_terminal();  // removes it
  report_terminal(const report_terminal&) = delete;
  report_terminal& operator=(const report_terminal&) = delete;

  // What the daemon is to open. Only this user may.
  const std::string& path() const { return path_; }

  // All that was written, once the daemon has answered.
  std::string take() const;

private:
  int fd_ = -1;
  std::string path_;
};

#endif
