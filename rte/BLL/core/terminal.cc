#include "rte/BLL/core/terminal.h"

#include "rte/BLL/core/manager_log.h"
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <string_view>
#include <unistd.h>

namespace {

// Even a slow serial line takes something in that time.
constexpr int longestPause_ms = 2000;

// A terminal that is held (Ctrl-S) or a pipe whose reader sleeps must not hold up every later message: what is left of
// the text is offered only for as long as some of it is taken.
bool writeWhole(int fd, std::string_view text)
{
  while (!text.empty()) {
    const ssize_t count = write(fd, text.data(), text.size());
    if (count > 0) {
      text.remove_prefix(static_cast<size_t>(count));
      continue;
    }
    if (count < 0 && errno == EINTR)
      continue;
    pollfd room{fd, POLLOUT, 0};
    if (errno != EAGAIN || poll(&room, 1, longestPause_ms) <= 0 || !(room.revents & POLLOUT))
      return false;
  }
  return true;
}

// Null if all went well, else what did not.
const char* writeTo(int fd, const std::string& text)
{
  if (fcntl(fd, F_SETFD, FD_CLOEXEC) < 0)
    return "Error setting flags to file: ";
  return writeWhole(fd, text) ? nullptr : "Error writing to file: ";
}

}  // namespace

bool writeToTerminal(const std::string& tty, const std::string& text)
{
  const int fd = open(tty.c_str(), O_WRONLY | O_NOCTTY | O_NONBLOCK);
  const char* const error = fd < 0 ? "Error opening tty file for writing: " : writeTo(fd, text);
  if (fd >= 0)
    close(fd);
  if (error)
    logAt(LogImpl::critical) << error << tty << "\n";
  return !error;
}
