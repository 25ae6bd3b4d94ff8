// What receiving and sending cost without anything in between: the yardsticks of the whole-path bench.
#ifndef BENCH_AGENT_BARE_LOOPS_H
#define BENCH_AGENT_BARE_LOOPS_H

#include "pppoeia/kernel/kernel.h"

#include <atomic>
#include <cstdint>

// Both count the frames they sent in `frames`.

// (a) one select, one recv, one send a frame. Takes a source without a ring.
void bare_select_loop(const packet_source& source, const std::atomic<bool>& stop, std::atomic<uint64_t>& frames);

// One poll, then receives and sendmmsg in batches of 32 while they come full; receives are (b) recvmmsg without a ring,
// (c) copies out of the mapped ring with one.
void bare_batch_loop(const packet_source& source, const std::atomic<bool>& stop, std::atomic<uint64_t>& frames);

#endif
