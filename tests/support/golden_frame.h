// Frames that tests share, as people write them: tests/frames/NAME.frame holds the bytes in hexadecimal, field by
// field. "61*12" is a byte twelve times, and from # to the line's end stands what the bytes are.
#ifndef TESTS_SUPPORT_GOLDEN_FRAME_H
#define TESTS_SUPPORT_GOLDEN_FRAME_H

#include <string>
#include <vector>

// The frame from its destination address on. Throws std::runtime_error with file and line where something is no byte,
// and for a file that cannot be read.
std::vector<unsigned char> golden_frame(const std::string& name);

// A frame as such a file might have it, to compare.
std::string frame_text(const std::vector<unsigned char>& frame);

#endif
