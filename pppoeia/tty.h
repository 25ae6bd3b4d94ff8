// Text reports to a terminal device that the caller of an operation names.
#ifndef PPPOEIA_TTY_H
#define PPPOEIA_TTY_H

#include <sstream>
#include <string>

// Writes the whole text of `text` to the device in one write, as terminal_write() does: with the rights of whoever
// asked. An empty path does nothing. A device that cannot be opened, prepared or written whole is reported to syslog at
// critical priority, whatever the log level, and the report, or its rest, is lost.
void pppoeia_send_stream_to_tty(const std::stringstream& text, const std::string& path);

#endif
