#include "tools/report_terminal/report_terminal.h"

#include <cerrno>
#include <climits>
#include <poll.h>
#include <pty.h>
#include <system_error>
#include <termios.h>
#include <unistd.h>

report_terminal::report_terminal()
{
  char name[PATH_MAX];
  if (openpty(&master_, &slave_, name, nullptr, nullptr) != 0)
    throw std::system_error(errno, std::generic_category(), "no pseudo terminal");
  path_ = name;
  termios settings{};
  tcgetattr(slave_, &settings);
  cfmakeraw(&settings);  // bytes as the daemon wrote them
  tcsetattr(slave_, TCSANOW, &settings);
  reader_ = std::thread([this] { read_all(); });
}

report_terminal::~report_terminal()
{
  abandoned_ = true;  // a daemon that hangs may keep the terminal open for ever
  take();
  close(master_);
}

void report_terminal::read_all()
{
  constexpr int look_up_ms = 50;
  char block[4096];
  while (!abandoned_) {
    pollfd wait{master_, POLLIN, 0};
    if (poll(&wait, 1, look_up_ms) == 0)
      continue;
    const ssize_t count = read(master_, block, sizeof block);
    if (count > 0)
      text_.append(block, static_cast<size_t>(count));
    else if (count == 0 || errno != EINTR)
      return;
  }
}

std::string report_terminal::take()
{
  if (slave_ >= 0)
    close(slave_);
  slave_ = -1;
  if (reader_.joinable())
    reader_.join();
  return std::move(text_);
}
