#include "tools/pppoeiactl/terminal.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <system_error>
#include <termios.h>
#include <thread>
#include <unistd.h>

report_terminal::report_terminal()
{
  char name[PATH_MAX];
  if (openpty(&master_, &slave_, name, nullptr, nullptr) != 0)
    throw std::system_error(errno, std::generic_category(), "no pseudo terminal");
  path_ = name;
  termios settings{};
  tcgetattr(slave_, &settings);
  cfmakeraw(&settings);  // bytes as the agent wrote them
  tcsetattr(slave_, TCSANOW, &settings);
}

report_terminal::~report_terminal()
{
  close(slave_);
  close(master_);
}

// Reads until nothing has come for a moment: the agent has answered before, so all of it is in the terminal.
void report_terminal::drain()
{
  constexpr int quiet_ms = 20;
  char block[4096];
  pollfd wait{master_, POLLIN, 0};
  while (poll(&wait, 1, quiet_ms) == 1) {
    const ssize_t count = read(master_, block, sizeof block);
    if (count <= 0)
      return;
    text_.append(block, static_cast<size_t>(count));
  }
}

std::string report_terminal::take()
{
  drain();
  return std::move(text_);
}
