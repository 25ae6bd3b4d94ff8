// The process that inspects this one, and where it puts what it finds.
#ifndef RTE_BLL_CORE_DEBUGGER_REPORTER_H
#define RTE_BLL_CORE_DEBUGGER_REPORTER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>

struct reportRequest_t {
  int32_t kernelThreadId = 0;  // whose stack; the crashed one's, of a crash
  int32_t signal = 0;          // 0: a stack on request, sent back; otherwise a crash, reported and answered empty
  uint64_t address = 0;        // that could not be accessed
};

// Whoever asks waits no longer than this. A reporter that takes longer ends itself soon after.
inline constexpr std::chrono::milliseconds longestRequest(1900);
inline constexpr std::chrono::milliseconds longestCrashReport(10'000);

// An answer is one packet of at most this many bytes.
inline constexpr size_t longestAnswer = 60'000;

struct reporterProcess_t {
  pid_t pid = 0;
  int socket = -1;  // SOCK_SEQPACKET, close-on-exec; closing it ends the reporter
};

using reportDeadline_t = std::chrono::steady_clock::time_point;

// Forks a reporter for the calling process. A pid of 0 if that failed, or if it was not ready by the deadline. The
// reporter is no child of the caller: nobody has to wait for it.
reporterProcess_t forkReporter(reportDeadline_t deadline);

// Lets it trace the calling process, and takes that right from the one before: the kernel knows one tracer. To be
// called before each request. Safe in a signal handler.
void letTrace(pid_t reporter);

// The next packet as text, without the zero at its end; false if none came by the deadline or the reporter is gone.
bool receiveAnswer(int socket, reportDeadline_t deadline, std::string& text);

// Where the lines of a crash report go. Takes one line, without a newline, about the process `about`. Called in the
// reporter process only, by its one thread.
using reportSink_t = void (*)(pid_t about, const std::string& line);

// The real one, to syslog at LOG_CRIT and to standard error, where one that does not read is not waited for, unless a
// test has put its own in its place before the reporter is forked.
reportSink_t& reportSink();

#endif
