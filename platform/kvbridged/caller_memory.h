// Memory of the process that makes a control request.
#ifndef PLATFORM_KVBRIDGED_CALLER_MEMORY_H
#define PLATFORM_KVBRIDGED_CALLER_MEMORY_H

#include <cstddef>
#include <string>
#include <sys/types.h>

namespace kvbridged {

// The `size` bytes at `address` of process `pid`; fewer where its memory ends before. Empty on failure.
std::string caller_bytes(pid_t pid, const void* address, size_t size);

}  // namespace kvbridged

#endif
