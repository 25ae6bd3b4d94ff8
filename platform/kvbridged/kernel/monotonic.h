// The clock that the programs in the kernel read.
#ifndef PLATFORM_KVBRIDGED_KERNEL_MONOTONIC_H
#define PLATFORM_KVBRIDGED_KERNEL_MONOTONIC_H

#include <cstdint>
#include <ctime>

namespace kvbridged {

inline uint64_t monotonic_ns()
{
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000u + static_cast<uint64_t>(now.tv_nsec);
}

}  // namespace kvbridged

#endif
