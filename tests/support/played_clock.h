// The C library's clocks as a test wants them, which need neither wait nor hurry then. Only in programs that have
// played_clock.cc among their sources.
#ifndef TESTS_SUPPORT_PLAYED_CLOCK_H
#define TESTS_SUPPORT_PLAYED_CLOCK_H

#include <ctime>

// The clock, CLOCK_REALTIME or CLOCK_MONOTONIC, stands at this second for all threads; 0: it runs.
void clock_stand(clockid_t clock, time_t second);

#endif
