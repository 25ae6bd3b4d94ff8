// Where the lines of a crash report go. Not installed.
#pragma once

#include <string>
#include <sys/types.h>

// Takes one line, without a newline, about the process `about`. Called in the reporter process only, by its one thread.
using reportSink_t = void (*)(pid_t about, const std::string& line);

// The real one, to syslog at LOG_CRIT and to standard error, where one that does not read is not waited for, unless a
// test has put its own in its place before the reporter is forked.
reportSink_t& reportSink();
