#include "base/terminal.h"

#include "base/caller.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <mutex>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using clock = std::chrono::steady_clock;
constexpr int longest_write_ms = 1000;
constexpr auto refused_for = std::chrono::seconds(10);

// How far a child has come, as it tells its parent.
enum class step : unsigned char { opening, setting_flags, writing, written, ended };

constexpr const char* failures[] = {
    "Error opening tty file for writing: ", "Error setting flags to file: ", "Error writing to file: ", nullptr};

constexpr gid_t unchanged_group = static_cast<gid_t>(-1);
constexpr uid_t unchanged_user = static_cast<uid_t>(-1);

// The child. It is a copy of one thread of many, so it calls nothing that may take a lock of another.
// ---------------------------------------------------------------------------------------------------------------------

constexpr int parent = STDIN_FILENO;  // where it tells its steps

void tell(step now)
{
  (void)!write(parent, &now, sizeof now);
}

// Nothing of the process is left to be opened anew by way of /proc/self/fd or /dev/tty.
bool leave_process(int progress)
{
  setsid();
  std::signal(SIGPIPE, SIG_IGN);
  return dup2(progress, parent) == parent && close_range(parent + 1, ~0U, 0) == 0;
}

// Takes the rights of `who` and keeps none of the process's. The real and the saved user stay: for who may send a
// signal they are what counts, so the child is the parent's to kill, and not the caller's to stop. Whom files, /proc
// and /sys let in they do not matter to, and the caller's own FUSE mounts, which could hold the child, keep it out by
// them.
bool rights_take(const caller& who, bool groups_differ)
{
  __user_cap_header_struct version{_LINUX_CAPABILITY_VERSION_3, 0};
  const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
  if (groups_differ && setgroups(who.groups.size(), who.groups.data()) != 0)
    return false;
  return setresgid(unchanged_group, who.group, unchanged_group) == 0 &&
         setresuid(unchanged_user, who.user, unchanged_user) == 0 && syscall(SYS_capset, &version, none) == 0;
}

void deliver(const char* path, std::string_view text)
{
  const int fd = open(path, O_WRONLY | O_NOCTTY | O_NONBLOCK);
  if (fd < 0)
    return;
  tell(step::setting_flags);
  if (fcntl(fd, F_SETFD, FD_CLOEXEC) < 0)
    return;
  tell(step::writing);
  if (write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()))
    tell(step::written);
  close(fd);
}

// `who` is null for the process's own rights.
[[noreturn]] void child(int progress, const caller* who, bool groups_differ, const char* path, std::string_view text)
{
  if (leave_process(progress) && (!who || rights_take(*who, groups_differ))) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // after the rights: a change of user takes it back
    deliver(path, text);
  }
  tell(step::ended);
  _exit(0);
}

// The parent.
// ---------------------------------------------------------------------------------------------------------------------

// Users whose terminal held a child until its time was over.
class held_users {
public:
  void add(uid_t user, pid_t child)
  {
    const std::lock_guard lock(mutex_);
    held_.push_back({user, child, clock::now() + refused_for});
  }

  bool has(uid_t user)
  {
    const std::lock_guard lock(mutex_);
    std::erase_if(held_, [](held& one) {
      if (one.child > 0 && waitpid(one.child, nullptr, WNOHANG) != 0)
        one.child = 0;
      return one.child == 0 && clock::now() >= one.until;
    });
    return std::ranges::any_of(held_, [user](const held& one) { return one.user == user; });
  }

private:
  struct held {
    uid_t user;
    pid_t child;  // 0 once it is gone
    clock::time_point until;
  };
  std::mutex mutex_;
  std::vector<held> held_;
};

held_users& held()
{
  static held_users& users = *new held_users;  // threads may still serve while the process ends
  return users;
}

bool groups_are_ours(std::vector<gid_t> groups)
{
  std::vector<gid_t> ours(static_cast<size_t>(std::max(getgroups(0, nullptr), 0)));
  ours.resize(static_cast<size_t>(std::max(getgroups(static_cast<int>(ours.size()), ours.data()), 0)));
  std::ranges::sort(ours);
  std::ranges::sort(groups);
  return ours == groups;
}

// Follows a child's steps until it has ended, for as long as it may take. The last step; false in `ended` if it is to
// be given up. The time is counted in short waits: one in which the machine stood still, and the child with it, counts
// as any other.
step follow(int progress, bool& ended)
{
  constexpr int wait_ms = 50;
  step last = step::opening;
  for (int waits = longest_write_ms / wait_ms; waits > 0;) {
    pollfd news{progress, POLLIN, 0};
    const int ready = poll(&news, 1, wait_ms);
    if (ready <= 0) {
      waits -= ready == 0 || errno != EINTR;
      continue;
    }
    step next{};
    ended = read(progress, &next, sizeof next) != sizeof next || next == step::ended;
    if (ended)
      return last;
    last = next;
  }
  return last;
}

step write_in_child(const caller* who, const char* path, std::string_view text)
{
  const uid_t user = who ? who->user : geteuid();
  int progress[2];
  if (held().has(user) || pipe2(progress, O_CLOEXEC) != 0)
    return step::opening;
  const bool take_rights = who && who->user != 0;  // root's requests have what the process has
  const bool groups_differ = take_rights && !groups_are_ours(who->groups);
  const pid_t pid = fork();
  if (pid == 0)
    child(progress[1], take_rights ? who : nullptr, groups_differ, path, text);
  close(progress[1]);
  bool ended = false;
  const step last = follow(progress[0], ended);
  close(progress[0]);
  if (pid > 0 && ended)
    waitpid(pid, nullptr, 0);
  else if (pid > 0) {
    kill(pid, SIGKILL);
    held().add(user, pid);
  }
  return last;
}

}  // namespace

const char* terminal_write(const std::string& path, std::string_view text)
{
  const step last =
      current_asker() == asker::unknown ? step::opening : write_in_child(current_caller(), path.c_str(), text);
  return failures[static_cast<size_t>(last)];
}
