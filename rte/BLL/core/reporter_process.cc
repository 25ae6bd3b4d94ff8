#include "rte/BLL/core/reporter_process.h"

#include "rte/BLL/core/thread_stacks.h"
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

namespace {

void say(const std::string& line)
{
  syslog(LOG_CRIT, "%s", line.c_str());
  std::fprintf(stderr, "%s\n", line.c_str());
}

void sayLines(const std::string& text)
{
  for (size_t begin = 0, end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1)
    say("  " + text.substr(begin, end - begin));
}

std::string addressText(uint64_t address)
{
  char text[32];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(address));
  return text;
}

void reportCrash(pid_t process, const reportRequest_t& request)
{
  say("*** Process " + std::to_string(process) + ", thread " + std::to_string(request.kernelThreadId) + " got signal " +
      std::to_string(request.signal) + " (" + strsignal(request.signal) + "), address " + addressText(request.address));
  sayLines(stackOf(process, request.kernelThreadId, true));
  for (const int32_t thread : threadsOf(process))
    if (thread != request.kernelThreadId) {
      say("*** Thread " + std::to_string(thread));
      sayLines(stackOf(process, thread, false));
    }
  say("*** End of the report on process " + std::to_string(process));
}

[[noreturn]] void serve(pid_t process, int socket)
{
  reportRequest_t request;
  while (recv(socket, &request, sizeof request, 0) == sizeof request) {
    std::string answer;
    if (request.signal)
      reportCrash(process, request);
    else
      answer = stackOf(process, request.kernelThreadId, false).substr(0, longestReport);
    answer.push_back('\0');  // a packet of no bytes would look like the end
    if (send(socket, answer.data(), answer.size(), MSG_NOSIGNAL) < 0)
      break;
  }
  _exit(0);
}

// Leaves nothing of the other process open here but the socket and standard error, and outlives its Ctrl-C.
[[noreturn]] void becomeReporter(pid_t process, int socket)
{
  closelog();
  if (socket != 3)
    dup2(socket, 3);
  close_range(4, ~0U, 0);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE})
    std::signal(signal, SIG_IGN);
  for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGCHLD})
    std::signal(signal, SIG_DFL);
  prctl(PR_SET_NAME, "bll-reporter");
  unsetenv("DEBUGINFOD_URLS");  // symbols of this machine only
  const pid_t own = getpid();
  send(3, &own, sizeof own, MSG_NOSIGNAL);
  serve(process, 3);
}

}  // namespace

reporterProcess_t forkReporter()
{
  const pid_t process = getpid();
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
    return {};
  const pid_t between = fork();  // ends at once, so that the reporter is nobody's child to wait for
  if (between == 0) {
    if (fork() == 0)
      becomeReporter(process, ends[1]);
    _exit(0);
  }
  close(ends[1]);
  if (between > 0)
    while (waitpid(between, nullptr, 0) < 0 && errno == EINTR) {
    }
  reporterProcess_t reporter{0, ends[0]};
  if (between < 0 || recv(ends[0], &reporter.pid, sizeof reporter.pid, 0) != sizeof reporter.pid) {
    close(ends[0]);
    return {};
  }
  prctl(PR_SET_PTRACER, reporter.pid);  // refused where nothing restricts tracing: not needed there
  return reporter;
}
