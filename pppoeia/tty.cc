#include "pppoeia/tty.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

void pppoeia_send_stream_to_tty(const std::stringstream& text, const std::string& path)
{
  if (path.empty())
    return;
  const std::string report = text.str();
  // Opening must not wait: a FIFO that nobody reads would hold up every other request. Writing may.
  const int fd = open(path.c_str(), O_WRONLY | O_NOCTTY | O_NONBLOCK);
  if (fd < 0) {
    syslog(LOG_CRIT, "\t PPPoEIA: Error opening tty file for writing: %s\n", path.c_str());
    return;
  }
  if (fcntl(fd, F_SETFD, FD_CLOEXEC) < 0 || fcntl(fd, F_SETFL, 0) < 0)
    syslog(LOG_CRIT, "\t PPPoEIA: Error setting flags to file: %s\n", path.c_str());
  else if (write(fd, report.data(), report.size()) != static_cast<ssize_t>(report.size()))
    syslog(LOG_CRIT, "\t PPPoEIA: Error writing to file: %s\n", path.c_str());
  close(fd);
}
