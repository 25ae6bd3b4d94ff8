// Its life: forked while the process is well, from any of its threads, so that it must not touch what another thread
// may have had locked then: no stdio, no syslog(3). (The C library sees to it that malloc is usable.) It gives its
// parent's files back, tells that it is ready, and serves one request after the other until the process is gone.
// Every step has a time limit, the alarm, that ends it; the kernel then lets go of what it traced.
#include "rte/BLL/core/debugger/reporter.h"

#include "rte/BLL/core/debugger/thread_stacks.h"
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <paths.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syslog.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
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

constexpr int reporterSocket = 3;

unsigned alarmAfter(std::chrono::milliseconds limit)
{
  return static_cast<unsigned>(std::chrono::ceil<std::chrono::seconds>(limit).count());
}

std::string addressText(uint64_t address)
{
  char text[32];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(address));
  return text;
}

std::string signalText(int signal)
{
  const char* const description = sigdescr_np(signal);  // strsignal would go through the translations, and their lock
  return std::to_string(signal) + " (" + (description ? description : "unknown") + ")";
}

class crashReport_t {
public:
  explicit crashReport_t(pid_t process) : process_(process), stacks_(process, longestCrashReport / 2) {}

  void write(const reportRequest_t& request)
  {
    say("*** Process " + std::to_string(process_) + ", thread " + nameOf(request.kernelThreadId) + " got signal " +
        signalText(request.signal) + ", address " + addressText(request.address));
    sayStack(request.kernelThreadId, true);
    for (const int32_t thread : threadsOf(process_))
      if (thread != request.kernelThreadId) {
        say("*** Thread " + nameOf(thread));
        sayStack(thread, false);
      }
    say("*** End of the report on process " + std::to_string(process_));
  }

private:
  void say(const std::string& line) const { reportSink()(process_, line); }
  std::string nameOf(int32_t thread) const
  {
    return std::to_string(thread) + " (" + threadName(process_, thread) + ")";
  }
  void sayStack(int32_t thread, bool afterSignal)
  {
    const std::string text = stacks_.of(thread, afterSignal);
    if (text.empty())
      say("  no stack: it could not be held still, or this process may not trace it");
    for (size_t begin = 0, end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1)
      say("  " + text.substr(begin, end - begin));
  }

  pid_t process_;
  processStacks_t stacks_;
};

[[noreturn]] void serve(pid_t process)
{
  reportRequest_t request;
  while (recv(reporterSocket, &request, sizeof request, 0) == sizeof request) {
    alarm(alarmAfter(request.signal ? longestCrashReport : longestRequest));
    std::string answer;
    if (request.signal) {
      crashReport_t(process).write(request);
    } else {
      processStacks_t stacks(process, longestRequest / 3);
      answer = stacks.of(request.kernelThreadId, false).substr(0, longestAnswer);
      if (stacks.leftThreadPending())
        break;  // an end is an answer, too
    }
    answer.push_back('\0');  // a packet of no bytes would look like the end
    if (send(reporterSocket, answer.data(), answer.size(), MSG_NOSIGNAL) < 0)
      break;
    alarm(0);
  }
  _exit(0);
}

// Comes with all signals blocked. The handlers of the other process are not for this one.
void resetSignals()
{
  for (int signal = 1; signal < NSIG; ++signal)
    std::signal(signal, SIG_DFL);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGQUIT})
    std::signal(signal, SIG_IGN);  // it outlives what ends the other process, to tell of it
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

// Nothing of the other process stays open here but the socket and standard error.
void keepOnly(int socket)
{
  dup2(socket, reporterSocket);
  closefrom(reporterSocket + 1);  // where all descriptors were taken, there is one for what follows
  const int null = open("/dev/null", O_RDWR);
  dup2(null, STDIN_FILENO);
  dup2(null, STDOUT_FILENO);
  if (fcntl(STDERR_FILENO, F_GETFD) < 0)
    dup2(null, STDERR_FILENO);
  closefrom(reporterSocket + 1);
}

[[noreturn]] void becomeReporter(pid_t process, const int (&ends)[2])
{
  resetSignals();
  alarm(alarmAfter(longestRequest));
  close(ends[0]);
  keepOnly(ends[1]);
  setsid();
  prctl(PR_SET_NAME, "bll-reporter");
  unsetenv("DEBUGINFOD_URLS");  // symbols of this machine only
  const pid_t own = getpid();
  send(reporterSocket, &own, sizeof own, MSG_NOSIGNAL);
  alarm(0);
  serve(process);
}

// Forks through a process that ends at once, so that the reporter is nobody's child to wait for. False if that failed.
bool forkBetween(const int (&ends)[2])
{
  const pid_t process = getpid();
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const pid_t between = fork();
  if (between == 0) {
    if (fork() == 0)
      becomeReporter(process, ends);
    _exit(0);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (between > 0)
    while (waitpid(between, nullptr, 0) < 0 && errno == EINTR) {
    }
  return between > 0;
}

// Size of the packet that came, or less than 1.
ssize_t receiveBy(int socket, reportDeadline_t deadline, void* packet, size_t size)
{
  pollfd wait{socket, POLLIN, 0};
  int ready;
  do {
    const auto left = deadline - std::chrono::steady_clock::now();
    const auto left_ms = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    ready = poll(&wait, 1, left_ms > 0 ? static_cast<int>(left_ms) : 0);
  } while (ready < 0 && errno == EINTR);
  return ready == 1 ? recv(socket, packet, size, MSG_DONTWAIT) : -1;
}

// Where a process has closed its standard error, what it prints there later must not reach the reporter.
int aboveStandard(int fd)
{
  if (fd > STDERR_FILENO)
    return fd;
  const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  close(fd);
  return moved;
}

}  // namespace

reportSink_t& reportSink()
{
  static constinit reportSink_t sink = toBoth;
  return sink;
}

reporterProcess_t forkReporter(reportDeadline_t deadline)
{
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
    return {};
  for (int& end : ends)
    end = aboveStandard(end);
  const bool forked = ends[0] >= 0 && ends[1] >= 0 && forkBetween(ends);
  close(ends[1]);
  reporterProcess_t reporter{0, ends[0]};
  if (!forked || receiveBy(ends[0], deadline, &reporter.pid, sizeof reporter.pid) != sizeof reporter.pid) {
    close(ends[0]);
    return {};
  }
  return reporter;
}

void letTrace(pid_t reporter)
{
  prctl(PR_SET_PTRACER, reporter);  // refused where nothing restricts tracing: not needed there
}

bool receiveAnswer(int socket, reportDeadline_t deadline, std::string& text)
{
  text.resize(longestAnswer + 1);
  const ssize_t size = receiveBy(socket, deadline, text.data(), text.size());
  text.resize(size > 0 ? static_cast<size_t>(size) - 1 : 0);
  return size > 0;
}
