// Writing a reply to an operator's terminal device. Not installed.
#pragma once

#include <string>

// Writes `text` to the device in one call. False, with the reason in the framework log, if the device cannot be opened
// or takes less than all. Does not wait for a device that nobody reads (a FIFO without a reader cannot be opened).
bool writeToTerminal(const std::string& tty, const std::string& text);
