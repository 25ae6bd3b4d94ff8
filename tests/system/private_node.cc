#include "tests/system/private_node.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
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

background::background(std::vector<std::string> command, std::string output) : output_(std::move(output))
{
  std::vector<char*> words;
  for (std::string& word : command)
    words.push_back(word.data());
  words.push_back(nullptr);
  pid_ = fork();
  if (pid_ != 0)
    return;
  const int fd = open(output_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  dup2(fd, STDOUT_FILENO);
  dup2(fd, STDERR_FILENO);
  execvp(words[0], words.data());
  _exit(127);
}

background::~background()
{
  if (pid_ <= 0)
    return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

int background::end()
{
  kill(pid_, SIGTERM);
  return wait();
}

int background::wait()
{
  int status = -1;
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (waitpid(pid_, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline)
      return -1;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  pid_ = -1;
  return status;
}

std::string background::output() const
{
  std::ifstream file(output_);
  return {std::istreambuf_iterator<char>(file), {}};
}
