// What the code under test sent to syslog: this library's syslog() takes the place of the C library's.
#ifndef TESTS_SUPPORT_SYSLOG_CAPTURE_H
#define TESTS_SUPPORT_SYSLOG_CAPTURE_H

#include <string>
#include <vector>

struct syslog_line {
  int priority;
  std::string text;
};

// Lines since the last call, oldest first; forgets them. Any thread.
std::vector<syslog_line> syslog_take();

// The texts alone, without the agent's prefix.
std::vector<std::string> syslog_take_texts();

// Keep nothing from now on (for load tests), or keep again.
void syslog_keep(bool keep);

#endif
