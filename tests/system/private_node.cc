#include "tests/system/private_node.h"
#include "tests/support/files.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

constexpr auto patience = std::chrono::seconds(20);

void check(int result, const char* what)
{
  if (result < 0)
    throw std::system_error(errno, std::generic_category(), what);
}

// Cables carry what the test sends alone. The devices that programs need are bound into a folder that takes the place
// of /dev.
constexpr char furnish[] = R"(set -e
ip link set lo up
{ echo 1 >/proc/sys/net/ipv6/conf/default/disable_ipv6; } 2>/dev/null || true
mount -t tmpfs tmpfs /run
dev=$(mktemp -d)
mount -t tmpfs tmpfs $dev
mkdir $dev/net $dev/pts
for device in null zero full random urandom fuse net/tun; do
  test -e /dev/$device || continue
  touch $dev/$device
  mount --bind /dev/$device $dev/$device
done
mount --bind /dev/pts $dev/pts
ln -s pts/ptmx $dev/ptmx
mount --move $dev /dev
rmdir $dev)";

int log_socket()
{
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address = {AF_UNIX, "/dev/log"};
  check(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), "/dev/log");
  return fd;
}

}  // namespace

std::string private_node::enter()
{
  try {
    check(unshare(CLONE_NEWNET | CLONE_NEWNS), "namespaces");
    check(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "private mounts");
    check(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "private mounts");
    if (std::system(furnish) != 0)
      return "needs mounts";
    std::thread([this, socket = log_socket()] { read_log(socket); }).detach();
    return {};
  } catch (const std::exception& error) {
    return error.what();
  }
}

// "<29>Nov 21 07:00:00 name: text"
void private_node::read_log(int socket)
{
  char packet[16384];
  for (ssize_t size; (size = recv(socket, packet, sizeof packet, 0)) > 0;) {
    const std::string line(packet, static_cast<size_t>(size));
    const size_t text = line.find(": ");
    std::unique_lock guard(mutex_);
    more_.wait(guard, [this] { return !held_; });
    lines_.push_back(text == std::string::npos ? line : line.substr(text + 2));
    more_.notify_all();
  }
}

void private_node::hold_log(bool hold)
{
  const std::lock_guard guard(mutex_);
  held_ = hold;
  more_.notify_all();
}

std::vector<std::string> private_node::logged()
{
  const std::lock_guard guard(mutex_);
  return std::exchange(lines_, {});
}

bool private_node::wait_for_log(const std::string& text)
{
  std::unique_lock lock(mutex_);
  return more_.wait_for(lock, patience, [&] {
    return std::ranges::any_of(lines_, [&](const std::string& line) { return line.find(text) != std::string::npos; });
  });
}

bool wait_until(const std::function<bool()>& condition)
{
  for (const auto deadline = std::chrono::steady_clock::now() + patience; !condition();) {
    if (std::chrono::steady_clock::now() > deadline)
      return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

background::background(std::vector<std::string> command) : output_(memfd_create("output", MFD_CLOEXEC))
{
  std::vector<char*> words;
  for (std::string& word : command)
    words.push_back(word.data());
  words.push_back(nullptr);
  pid_ = fork();
  if (pid_ != 0)
    return;
  dup2(output_, STDOUT_FILENO);
  dup2(output_, STDERR_FILENO);
  execvp(words[0], words.data());
  _exit(127);
}

background::~background()
{
  if (pid_ > 0) {
    signal(SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  close(output_);
}

void background::signal(int number) const
{
  kill(pid_, number);
}

int background::end()
{
  signal(SIGTERM);
  return wait();
}

int background::wait()
{
  int status = -1;
  if (!wait_until([&] { return waitpid(pid_, &status, WNOHANG) != 0; }))
    return -1;
  pid_ = -1;
  ended_by_ = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string background::output() const
{
  return file_text("/proc/self/fd/" + std::to_string(output_));
}
