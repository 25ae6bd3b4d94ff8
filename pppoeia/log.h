// The agent's one log call. Everything goes to syslog with the prefix "[PPPoE]"; levels are syslog severities
// (2 critical, 3 error, 4 warning, 5 notice, 6 informational, 7 debug).
#ifndef PPPOEIA_LOG_H
#define PPPOEIA_LOG_H

#include <atomic>
#include <cstdint>

enum log_level : int32_t {
  log_critical = 2,
  log_error = 3,
  log_warning = 4,
  log_notice = 5,
  log_info = 6,
  log_debug = 7,
};

// Severity threshold of the process: a message of a numerically higher level is dropped. Starts at 6; any value may
// be stored, -1 drops everything. Written by the management thread, read by every thread that logs.
extern std::atomic<int32_t> pppoeia_log_level;

// True when a message of that level would pass. Work that only a debug line needs is done behind this test.
inline bool log_enabled(int32_t level)
{
  return level <= pppoeia_log_level.load(std::memory_order_relaxed);
}

extern "C" {

// Logs one message, printf-style. Tests the level before it formats. Debug messages that pass are sent at
// informational priority, so that a node's syslog filter does not lose them. A text over 999 characters is formatted
// on the heap, and dropped silently when there is no memory for it. Any thread; how long it may wait for the log daemon
// is base/system_log.h's matter.
void pppoeia_log(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // extern "C"

#endif
