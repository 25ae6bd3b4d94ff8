// The thread that serves one bridge's discovery frames.
#ifndef PPPOEIA_AGENT_WORKER_H
#define PPPOEIA_AGENT_WORKER_H

struct pppoeia_bridge;

// Starts the bridge's worker, with SIGINT and SIGTERM blocked in it. 0, or the thread library's error number.
int worker_thread_start(pppoeia_bridge& bridge);

// Waits for the worker, whose `stop` must be set; at most one wait of 10 ms and the frames in hand. 0, or the thread
// library's error number.
int worker_thread_join(pppoeia_bridge& bridge);

// The worker's routine, given its pppoeia_bridge. Ends when `stop` is set. Returns null.
extern "C" void* pppoeia_bridge_worker(void* bridge);

#endif
