#include "platform/kvbridged/private_proc.h"

#include "platform/kvbridged/settings.h"
#include "platform/kvbridged/tree_place.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

namespace kvbridged {
namespace {

namespace fs = std::filesystem;

// Where the real procfs is in the command's /proc.
constexpr char real_folder[] = ".real";

void check(bool done, const std::string& what)
{
  if (!done)
    throw fatal(what + ": " + std::strerror(errno));
}

bool propagation_set(const char* mount_point)
{
  return mount(nullptr, mount_point, nullptr, MS_REC | MS_SLAVE, nullptr) == 0;
}

// Keeps what is mounted from now on out of the namespace that the process came from, but not the other way round: the
// tree of another kvbridged has to appear here.
void propagation_one_way(const std::string& tree)
{
  if (propagation_set("/"))
    return;
  // In a chroot the root is no mount point of its own, but what is mounted over is.
  check(errno == EINVAL && propagation_set("/proc") && propagation_set(tree.c_str()),
        "cannot keep the mounts to this command");
}

void folder_make(const std::string& folder)
{
  check(mkdir(folder.c_str(), 0755) == 0, "cannot make " + folder);
}

void mount_or_throw(const char* from, const std::string& to, const char* type, unsigned long flags,
                    const char* options = nullptr)
{
  check(mount(from, to.c_str(), type, flags, options) == 0, "cannot mount " + to);
}

// Puts an empty /proc over the real one, which goes inside. It is made elsewhere and moved, since the real one would be
// out of reach behind it: over the tree, which is seen again then.
void proc_make(const std::string& tree)
{
  mount_or_throw("kvbridged", tree, "tmpfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, "mode=0755");
  folder_make(tree + "/" + real_folder);
  mount_or_throw("/proc", tree + "/" + real_folder, nullptr, MS_BIND | MS_REC);
  mount_or_throw(tree.c_str(), "/proc", nullptr, MS_MOVE);
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

void net_make(const fs::path& tree, const fs::path& real)
{
  const fs::path net = "/proc/net";
  folder_make(net);
  for (const char* folder : {"mng", "kvbridge"})
    fs::create_symlink(tree / folder, net / folder);
  link_all(real / "self/net", net);
}

}  // namespace

void private_proc_exec(const std::string& tree, const std::vector<std::string>& command)
{
  const std::string served = tree_served(tree);
  check(unshare(CLONE_NEWNS) == 0, "no mount namespace");
  propagation_one_way(served);
  proc_make(served);
  const fs::path real = fs::path("/proc") / real_folder;
  net_make(served, real);
  link_all(real, "/proc");
  std::vector<char*> arguments;
  for (const std::string& word : command)
    arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  execvp(arguments[0], arguments.data());
  throw fatal("cannot run " + command[0] + ": " + std::strerror(errno));
}

}  // namespace kvbridged
