// The one way from this process to syslog.
//
// syslog(3) waits while the log daemon does not read, and makes every other thread that calls it wait too. Who logs
// here has frames to pass and requests to answer, so in a process that has called system_log_begin() lines go into a
// queue of 256 KiB (some 3,000 lines of usual length), and a thread of its own hands them to syslog in the order they
// came in.
//
// - While the daemon takes lines nothing is lost: who finds the queue full waits for room, and others behind it.
// - A daemon that has taken nothing for 100 ms counts as stopped. Then nobody waits: what finds no room is lost, and
// all
//   after it until the daemon takes a line. In their place one line tells "<prefix>%u messages lost." at LOG_WARNING.
// - Where there is no daemon, syslog() returns at once, and lines vanish as they do without a queue.
// - The time in a line is that of its writing: after a stop the lines that waited carry the time of its end.
// - exit(3) waits until all is written, a second at most, and tells on standard error how much was not.
// - A crash loses what the thread has not come to. At any other time than a storm that is the last line, if any.
// - A forked child has no such thread and no part in its parent's lines: its own go straight to syslog. (fork(2) waits
//   for the thread to come out of syslog() for that, 100 ms at most; if it did not, the child's lines are dropped.)
//
// Without system_log_begin(), as in a program that only links a library, lines go straight to syslog.
#ifndef BASE_SYSTEM_LOG_H
#define BASE_SYSTEM_LOG_H

// Hands one text to syslog with the given priority (LOG_CRIT to LOG_DEBUG). Any thread. A text longer than the queue is
// lost. openlog(3) must not be called once lines may be under way.
void system_log(int priority, const char* text);

// Starts the queue; for the process's entry, once. The prefix, which stays the caller's, begins the lines that tell of
// a loss. The thread takes any signal but SIGINT and SIGTERM. Throws std::bad_alloc; without a thread, lines go
// straight to syslog and one says so.
void system_log_begin(const char* prefix);

// Waits until all lines are written, a second at most; from then on nobody waits for room any more. What is not written
// by then is counted on standard error, if that can be had without waiting. exit(3) calls it; call it before _exit(2).
// Any thread, any number of times: only the first call waits.
void system_log_end();

#endif
