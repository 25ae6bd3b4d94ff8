// What the agent shows of itself to whoever may read: a thread of its own that answers HTTP requests.
//
//   /metrics   every counter, for monitoring systems
//   /lines     who is on which line (?bridge=, port=, mac=)
//   /drops     the last 1,024 frames that were dropped (?bridge=, port=, mac=, code=)
//   /monitor   frames as they pass, for as long as the reader stays (?bridge=, port=, mac=, code=, dropped=1)
//   /healthz   whether the workers are there
//
// It serves the socket /run/pppoeia/status (mode 0660, group pppoeia) or the path in PPPOEIA_STATUS_SOCKET (empty:
// none), and the address in PPPOEIA_STATUS_LISTEN, "127.0.0.1:9411" for example, if there is one: who reaches that may
// read all the same. The same thread looks after the ports' drops (drop_alarm.h).
#ifndef PPPOEIA_STATUS_STATUS_SERVER_H
#define PPPOEIA_STATUS_STATUS_SERVER_H

// Starts it. What cannot be had is told in one line of the log each, and the agent goes on without.
void status_begin();

// Ends it, if it was started; returns when it has ended, soon.
void status_end();

#endif
