#include "tools/pppoeiactl/config/confirmation.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

namespace config {
namespace {

using clock = std::chrono::steady_clock;

constexpr int patience_ms = 5000;  // for the child

constexpr char word_ready = 'r';  // the child's, when it listens
constexpr char word_begin = 'b';
constexpr char word_drop = 'd';
constexpr char word_confirm = 'c';
constexpr char word_stays = 's';  // the child's, to who confirms

std::string path_of(const std::string& agent_socket)
{
  return agent_socket + ".confirm";
}

bool address_make(const std::string& path, sockaddr_un& address)
{
  address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return false;
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  return true;
}

// A connected socket, or -1.
int waiting_connect(const std::string& path)
{
  sockaddr_un address{};
  if (!address_make(path, address))
    return -1;
  const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  if (fd >= 0 && connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
    return fd;
  if (fd >= 0)
    close(fd);
  return -1;
}

// A listening socket for this user and root, in the place of one that nobody serves any more; or -1.
int waiting_listen(const std::string& path)
{
  sockaddr_un address{};
  if (!address_make(path, address))
    return -1;
  if (const int other = waiting_connect(path); other >= 0) {
    close(other);
    errno = EADDRINUSE;
    return -1;
  }
  unlink(path.c_str());
  const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  const mode_t former = umask(0177);
  const bool bound = fd >= 0 && bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  umask(former);
  if (bound && listen(fd, 4) == 0)
    return fd;
  if (fd >= 0)
    close(fd);
  return -1;
}

// One byte within that time, or nothing.
std::optional<char> word_read(int fd, int milliseconds)
{
  pollfd wait{fd, POLLIN, 0};
  char word = 0;
  if (poll(&wait, 1, milliseconds) != 1 || read(fd, &word, 1) != 1)
    return std::nullopt;
  return word;
}

// Who has confirmed and has been told that the card stays; -1 when who came did not, or has gone meanwhile.
int confirmer_accept(int listener)
{
  constexpr int first_word_ms = 1000;  // somebody who connects and says nothing
  const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  if (fd < 0 || (word_read(fd, first_word_ms) == word_confirm && send(fd, &word_stays, 1, MSG_NOSIGNAL) == 1))
    return fd;
  close(fd);
  return -1;
}

// All who have confirmed by the time that the first has; none when nobody did within that time.
std::vector<int> confirmers_within(int listener, unsigned seconds)
{
  const clock::time_point end = clock::now() + std::chrono::seconds(seconds);
  std::vector<int> confirmers;
  while (true) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - clock::now());
    if (confirmers.empty() && left.count() <= 0)
      return confirmers;
    pollfd wait{listener, POLLIN, 0};
    const int ready = poll(&wait, 1, confirmers.empty() ? static_cast<int>(left.count()) : 0);
    if (ready == 1) {
      if (const int fd = confirmer_accept(listener); fd >= 0)
        confirmers.push_back(fd);
    } else if (!confirmers.empty())
      return confirmers;
  }
}

// Of no terminal and no session any more, and nobody's reader.
void detach()
{
  setsid();
  std::signal(SIGHUP, SIG_IGN);
  std::signal(SIGPIPE, SIG_IGN);
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (int fd = 0; null >= 0 && fd <= 2; ++fd)
    dup2(null, fd);
}

// The child's life. Whoever waits for its end is let go when it no longer stands in another's way.
void wait_and_go_back(int parent, const context& context, memory& memory, unsigned seconds,
                      const confirmation::go_back& back)
{
  constexpr int no_limit = -1;
  constexpr auto time_out = std::chrono::seconds(20);
  const std::string path = path_of(context.agent.socket());
  const int listener = waiting_listen(path);
  if (listener < 0) {
    const int reason = errno;
    (void)!write(parent, &reason, sizeof reason);
    return;
  }
  detach();
  (void)!write(parent, &word_ready, 1);
  const std::optional<char> told = word_read(parent, no_limit);
  const std::vector<int> confirmers = told == word_begin ? confirmers_within(listener, seconds) : std::vector<int>();
  unlink(path.c_str());
  close(listener);
  if (told == word_drop || !confirmers.empty()) {
    memory.unlock();
    close(parent);
    std::ranges::for_each(confirmers, close);
    return;
  }
  agent_client::connection own(context.agent.socket(), time_out);
  const std::string how = back({own, context.refusal_text});
  openlog("pppoeiactl", LOG_PID, LOG_DAEMON);
  syslog(LOG_WARNING, "What was applied is not confirmed: %s.", how.c_str());
}

}  // namespace

confirmation::confirmation(const context& context, memory& memory, unsigned seconds, const go_back& back)
{
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
    throw command_error(exit_refused, std::string("apply --confirm: no child to wait: ") + std::strerror(errno));
  const pid_t pid = fork();
  if (pid == 0) {
    close(ends[0]);
    try {
      wait_and_go_back(ends[1], context, memory, seconds, back);
    } catch (const std::exception&) {
      // There is nobody left to tell.
    }
    _exit(0);
  }
  close(ends[1]);
  child_ = ends[0];
  int answer = 0;
  const ssize_t size = pid < 0 ? -1 : read(child_, &answer, sizeof answer);
  if (size == 1)
    return;
  close(child_);
  throw command_error(exit_refused, "apply --confirm: nothing was changed: " + path_of(context.agent.socket()) + ": " +
                                        std::strerror(size == sizeof answer ? answer : errno));
}

confirmation::~confirmation()
{
  close(child_);
}

void confirmation::tell(char word)
{
  (void)!send(child_, &word, 1, MSG_NOSIGNAL);
}

void confirmation::begin()
{
  tell(word_begin);
}

void confirmation::drop()
{
  tell(word_drop);
  word_read(child_, patience_ms);  // until it has closed its end
}

void confirmation_give(const std::string& agent_socket)
{
  const std::string path = path_of(agent_socket);
  const int fd = waiting_connect(path);
  if (fd < 0)
    throw errno == EACCES || errno == EPERM
        ? command_error(exit_no_permission, "no permission for " + path + " (it is for who applied the file)")
        : command_error(exit_refused, "confirm: nothing waits for it: it was given, or the card has gone back");
  (void)!send(fd, &word_confirm, 1, MSG_NOSIGNAL);
  const std::optional<char> answer = word_read(fd, patience_ms);
  if (answer == word_stays)
    word_read(fd, patience_ms);  // until the child has closed its end
  close(fd);
  if (answer != word_stays)
    throw command_error(exit_refused, "confirm: too late, the card goes back");
}

}  // namespace config
