// Writing a reply to an operator's terminal device. Not installed.
#pragma once

#include <string>

// Writes `text` to the device, in one call if it takes all at once. False, with the reason in the framework log, if the
// device cannot be opened, fails or takes nothing for two seconds. A FIFO without a reader cannot be opened.
bool writeToTerminal(const std::string& tty, const std::string& text);
