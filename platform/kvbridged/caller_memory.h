// Who makes a control request, and the memory of that process. The caller waits for its answer meanwhile.
#ifndef PLATFORM_KVBRIDGED_CALLER_MEMORY_H
#define PLATFORM_KVBRIDGED_CALLER_MEMORY_H

#include <cstddef>
#include <string>
#include <sys/types.h>

namespace kvbridged {

// The `size` bytes at `address` of process `pid`; fewer where its memory ends before. Empty on failure.
std::string caller_bytes(pid_t pid, const void* address, size_t size);

// The process that thread `tid` belongs to; 0 when that is not known.
pid_t process_of(pid_t tid);

}  // namespace kvbridged

#endif
