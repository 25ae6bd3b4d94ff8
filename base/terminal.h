// Text for an operator's terminal, or whatever other file the asker of it names.
//
// The file is opened with the rights of whoever asked (base/caller.h), so that nobody has something written to what
// they could not write themselves; if those rights cannot be taken, or nobody can say whose they are, it is not opened.
// Nothing waits for the terminal: it is opened and written with O_NONBLOCK, in one write. What can hold all the same (a
// network file system, a serial line that drains at its close) does so in a child process, a second at most. Then the
// child is killed, and for the next ten seconds, or as long as the child cannot die, its user's texts are refused at
// once.
//
// The child is there for the rights as well. A thread that takes another user's shares the process's descriptors, which
// /proc/self/fd opens anew, and its terminal; and it takes the right to dump core from the whole process.
#ifndef BASE_TERMINAL_H
#define BASE_TERMINAL_H

#include <string>
#include <string_view>

// Writes `text` to the file at `path`, which is not truncated. Null when the terminal took all of it, else what went
// wrong, as a log tells it before the path ("Error writing to file: "). Any thread; answers within a second or so.
const char* terminal_write(const std::string& path, std::string_view text);

#endif
