// The process that inspects this one. Not installed.
#pragma once

#include <cstdint>
#include <sys/types.h>

struct reportRequest_t {
  int32_t kernelThreadId = 0;  // whose stack; the crashed one's, of a crash
  int32_t signal = 0;          // 0: a stack on request, sent back; otherwise a crash, reported and answered empty
  uint64_t address = 0;        // that could not be accessed
};

// An answer is one packet of at most this many bytes.
inline constexpr int longestReport = 60'000;

struct reporterProcess_t {
  pid_t pid = 0;
  int socket = -1;  // SOCK_SEQPACKET, close-on-exec; closing it ends the reporter
};

// Forks a reporter for the calling process, and lets it attach. A pid of 0 if that failed. The reporter is no child of
// the caller: nobody has to wait for it.
reporterProcess_t forkReporter();
