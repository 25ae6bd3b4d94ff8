#include "platform/kvbridged/private_proc.h"

#include "platform/kvbridged/settings.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace kvbridged {
namespace {

namespace fs = std::filesystem;

// Where the real procfs is in the command's namespace.
constexpr char real_proc[] = "/run/kvbridged/proc";

void check(bool done, const std::string& what)
{
  if (!done)
    throw fatal(what + ": " + std::strerror(errno));
}

void mount_or_throw(const char* from, const std::string& to, const char* type, unsigned long flags)
{
  check(mount(from, to.c_str(), type, flags, nullptr) == 0, "cannot mount " + to);
}

// Keeps what is mounted from now on out of the namespace that the process came from.
void propagation_end()
{
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0)
    return;
  // In a chroot the root is no mount point of its own, but what is mounted over is.
  check(errno == EINVAL, "cannot make the mounts private");
  mount_or_throw("none", "/proc", nullptr, MS_REC | MS_PRIVATE);
  mount("none", "/run", nullptr, MS_REC | MS_PRIVATE, nullptr);
}

// Links every entry of `from` into the directory `to`, except those that are there already.
void link_all(const fs::path& from, const fs::path& to)
{
  for (const auto& entry : fs::directory_iterator(from)) {
    const fs::path link = to / entry.path().filename();
    if (!fs::exists(fs::symlink_status(link)))
      fs::create_symlink(entry.path(), link);
  }
}

// The tree's folders, mounted where the real /proc/net's entries are linked.
void net_make(const std::string& tree)
{
  const fs::path net = "/proc/net";
  fs::create_directory(net);
  for (const char* folder : {"mng", "kvbridge"}) {
    fs::create_directory(net / folder);
    mount_or_throw((tree + "/" + folder).c_str(), net / folder, nullptr, MS_BIND);
  }
  link_all(fs::path(real_proc) / "self" / "net", net);
}

}  // namespace

void private_proc_exec(const std::string& tree, const std::vector<std::string>& command)
{
  if (!fs::exists(tree + "/mng/config"))
    throw fatal("no control tree at " + tree + ": is kvbridged running?");
  check(unshare(CLONE_NEWNS) == 0, "no mount namespace");
  propagation_end();
  fs::create_directories(real_proc);
  mount_or_throw("/proc", real_proc, nullptr, MS_BIND | MS_REC);
  mount_or_throw("kvbridged", "/proc", "tmpfs", MS_NOSUID | MS_NODEV);
  net_make(tree);
  link_all(real_proc, "/proc");
  std::vector<char*> arguments;
  for (const std::string& word : command)
    arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  execvp(arguments[0], arguments.data());
  throw fatal("cannot run " + command[0] + ": " + std::strerror(errno));
}

void private_proc_clean()
{
  const fs::path folder = fs::path(real_proc).parent_path();
  std::error_code ignored;
  const auto entries = fs::directory_iterator(folder, ignored);
  const bool others =
      std::any_of(begin(entries), end(entries), [](const auto& entry) { return entry.path() != real_proc; });
  if (others)
    return;
  fs::remove(real_proc, ignored);
  fs::remove(folder, ignored);
}

}  // namespace kvbridged
