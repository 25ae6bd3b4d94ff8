// The process: its run flag and the way it waits for the end.
#ifndef PPPOEIA_PROCESS_H
#define PPPOEIA_PROCESS_H

// Installs pppoeia_signal_handler for SIGINT and SIGTERM, and holds both back in this thread and in those it starts:
// they arrive only while the main thread waits in process_wait_for_end(). 0, or -1.
int process_signals_install();

// Sleeps in steps of 10 seconds until a signal has cleared the run flag. A signal that came before the call, or comes
// at any moment of it, ends it at once.
void process_wait_for_end();

extern "C" void pppoeia_signal_handler(int number);

#endif
