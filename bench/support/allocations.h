// Counts the program's heap allocations: operator new of this library takes the place of the C++ library's.
#ifndef BENCH_SUPPORT_ALLOCATIONS_H
#define BENCH_SUPPORT_ALLOCATIONS_H

#include <cstdint>

// Since the start of the program, by all threads.
uint64_t allocations();

#endif
