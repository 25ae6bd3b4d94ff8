// What receiving and sending cost without anything in between: the yardsticks of the whole-path bench.
#ifndef BENCH_AGENT_BARE_LOOPS_H
#define BENCH_AGENT_BARE_LOOPS_H

#include <atomic>
#include <cstdint>

// Both count the frames they sent in `frames`.

// (a) one select, one recv, one send a frame.
void bare_select_loop(int fd, const std::atomic<bool>& stop, std::atomic<uint64_t>& frames);

// (b) one poll, then recvmmsg and sendmmsg in batches of 32 while they come full.
void bare_batch_loop(int fd, const std::atomic<bool>& stop, std::atomic<uint64_t>& frames);

#endif
