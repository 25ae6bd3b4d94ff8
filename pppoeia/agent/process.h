// The process: its run flag and the way it waits for the end.
#ifndef PPPOEIA_AGENT_PROCESS_H
#define PPPOEIA_AGENT_PROCESS_H

// How a process ends whose orderly end was held up.
inline constexpr int exit_cut_short = 3;

// Installs pppoeia_signal_handler for SIGINT and SIGTERM, and holds both back in this thread and in those it starts:
// they arrive only while the main thread waits in process_wait_for_end(). A closed pipe behind standard output must not
// end the process, so SIGPIPE is ignored. 0, or -1.
int process_signals_install();

// Sleeps in steps of 10 seconds until a signal has cleared the run flag. A signal that came before the call, or comes
// at any moment of it, ends it at once.
void process_wait_for_end();

// From now on the process has two seconds to end. If it is still there then, something holds it that will not give way
// soon (the kernel modules, or their stand-in, do not answer; a request waits for them; the log daemon reads no more):
// a critical line says so, and a moment later the process ends with exit_cut_short, whatever its threads are at.
void process_end_bound();

extern "C" void pppoeia_signal_handler(int number);

#endif
