#include "rte/BLL/core/terminal.h"

#include "rte/BLL/core/manager_log.h"
#include <fcntl.h>
#include <unistd.h>

namespace {

// Null if all went well, else what did not.
const char* writeAll(int fd, const std::string& text)
{
  // Opened without blocking, written with: opening must not wait for a reader, writing may wait for the terminal.
  if (fcntl(fd, F_SETFD, FD_CLOEXEC) < 0 || fcntl(fd, F_SETFL, 0) < 0)
    return "Error setting flags to file: ";
  if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
    return "Error writing to file: ";
  return nullptr;
}

}  // namespace

bool writeToTerminal(const std::string& tty, const std::string& text)
{
  const int fd = open(tty.c_str(), O_WRONLY | O_NOCTTY | O_NONBLOCK);
  const char* const error = fd < 0 ? "Error opening tty file for writing: " : writeAll(fd, text);
  if (fd >= 0)
    close(fd);
  if (error)
    logAt(LogImpl::critical) << error << tty << "\n";
  return !error;
}
