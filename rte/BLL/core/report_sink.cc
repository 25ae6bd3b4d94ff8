#include "rte/BLL/core/report_sink.h"

#include <cerrno>
#include <cstring>
#include <paths.h>
#include <sys/socket.h>
#include <sys/syslog.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// Not by syslog(3): when the reporter was forked, another thread may have been inside it, and then its lock is taken
// here for ever. The daemon adds the time itself.
void toSystemLog(pid_t about, const std::string& line)
{
  const int logSocket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (logSocket < 0)
    return;
  sockaddr_un daemon{AF_UNIX, _PATH_LOG};
  const std::string record = "<" + std::to_string(LOG_USER | LOG_CRIT) + ">" + program_invocation_short_name + "[" +
                             std::to_string(about) + "]: " + line;
  sendto(logSocket, record.data(), record.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&daemon),
         sizeof daemon);
  close(logSocket);
}

void toStandardError(std::string line)
{
  line += '\n';
  for (size_t done = 0; done < line.size();) {
    const ssize_t size = write(STDERR_FILENO, line.data() + done, line.size() - done);
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
