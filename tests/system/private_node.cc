#include "tests/system/private_node.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
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

void loopback_up()
{
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request = {};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  const int result = ioctl(fd, SIOCSIFFLAGS, &request);
  close(fd);
  check(result, "lo");
}

// The devices that programs need, by bind mounts, in a folder that takes the place of /dev.
void private_dev()
{
  char name[] = "/tmp/private-dev.XXXXXX";
  const std::filesystem::path dev = mkdtemp(name);
  check(mount("tmpfs", dev.c_str(), "tmpfs", 0, nullptr), "tmpfs");
  std::filesystem::create_directory(dev / "net");
  for (const char* device : {"null", "zero", "full", "random", "urandom", "fuse", "net/tun"}) {
    if (!std::filesystem::exists(std::filesystem::path("/dev") / device))
      continue;
    std::ofstream(dev / device).close();
    check(mount((std::filesystem::path("/dev") / device).c_str(), (dev / device).c_str(), nullptr, MS_BIND, nullptr),
          device);
  }
  std::filesystem::create_directory(dev / "pts");
  check(mount("/dev/pts", (dev / "pts").c_str(), nullptr, MS_BIND, nullptr), "pts");
  std::filesystem::create_symlink("pts/ptmx", dev / "ptmx");
  check(mount(dev.c_str(), "/dev", nullptr, MS_MOVE, nullptr), "/dev");
  std::filesystem::remove(dev);
}

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
    loopback_up();
    std::ofstream("/proc/sys/net/ipv6/conf/default/disable_ipv6") << "1\n";  // cables carry what the test sends
    check(mount("tmpfs", "/run", "tmpfs", 0, nullptr), "/run");
    private_dev();
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
  std::ifstream file("/proc/self/fd/" + std::to_string(output_));
  return {std::istreambuf_iterator<char>(file), {}};
}
