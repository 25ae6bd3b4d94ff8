#include "rte/BLL/core/debugger/report_sink.h"

#include <cerrno>
#include <cstring>
#include <paths.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syslog.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// A reader that has taken nothing for this long is not waited for again until it does.
constexpr int patience_ms = 100;

// Not by syslog(3): when the reporter was forked, another thread may have been inside it, and then its lock is taken
// here for ever. The daemon adds the time itself.
void toSystemLog(pid_t about, const std::string& line)
{
  static bool stopped = false;
  const int logSocket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (logSocket < 0)
    return;
  const timeval patience{0, patience_ms * 1000};
  setsockopt(logSocket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  sockaddr_un daemon{AF_UNIX, _PATH_LOG};
  const std::string record = "<" + std::to_string(LOG_USER | LOG_CRIT) + ">" + program_invocation_short_name + "[" +
                             std::to_string(about) + "]: " + line;
  const ssize_t sent = sendto(logSocket, record.data(), record.size(), MSG_NOSIGNAL | (stopped ? MSG_DONTWAIT : 0),
                              reinterpret_cast<const sockaddr*>(&daemon), sizeof daemon);
  stopped = sent < 0 && errno == EAGAIN;
  close(logSocket);
}

void toStandardError(std::string line)
{
  static bool stopped = false;
  line += '\n';
  for (size_t done = 0; done < line.size();) {
    pollfd room{STDERR_FILENO, POLLOUT, 0};
    stopped = poll(&room, 1, stopped ? 0 : patience_ms) == 0;
    const ssize_t size = stopped ? 0 : write(STDERR_FILENO, line.data() + done, line.size() - done);
    if (size <= 0)
      return;
    done += static_cast<size_t>(size);
  }
}

void toBoth(pid_t about, const std::string& line)
{
  toSystemLog(about, line);
  toStandardError(line);
}

}  // namespace

reportSink_t& reportSink()
{
  static constinit reportSink_t sink = toBoth;
  return sink;
}
