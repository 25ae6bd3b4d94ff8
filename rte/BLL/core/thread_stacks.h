// The stacks of another process's threads, as text. Not installed.
#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

// One line a frame: number, address, function and source line where they are known. `afterSignal` leaves out what ran
// above the last signal handler: the handler itself. Empty if the thread is not there or cannot be attached to.
std::string stackOf(pid_t process, int32_t kernelThreadId, bool afterSignal);

// Of every thread of the process.
std::vector<int32_t> threadsOf(pid_t process);
