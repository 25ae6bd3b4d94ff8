#include "platform/kvbridged/tree_place.h"

#include "platform/kvbridged/settings.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sstream>
#include <sys/mount.h>
#include <sys/stat.h>

namespace kvbridged {
namespace {

namespace fs = std::filesystem;

constexpr char last_line[] = ".";  // of the lock file: what comes before it is whole

void check(bool done, const std::string& what)
{
  if (!done)
    throw fatal(what + ": " + std::strerror(errno));
}

// Absolute and without links, but for the last name: a dead tree cannot be looked at.
fs::path place_of(const std::string& directory)
{
  fs::path place = fs::absolute(directory).lexically_normal();
  if (place.filename().empty())
    place = place.parent_path();
  return fs::weakly_canonical(place.parent_path()) / place.filename();
}

std::string lock_of(const std::string& place)
{
  return place + ".lock";
}

// In a folder with the sticky bit others make names, but do not change those that are there.
void trust_check(const fs::path& folder, bool may_be_sticky)
{
  struct stat found {};
  if (lstat(folder.c_str(), &found) != 0)
    return;  // nor can anybody make use of it
  const bool writable = found.st_mode & (S_IWGRP | S_IWOTH);
  if (!S_ISDIR(found.st_mode) || found.st_uid != 0 || (writable && !(may_be_sticky && found.st_mode & S_ISVTX)))
    throw fatal(folder.string() + " is no folder that only root can change");
}

void trust_check_all(const fs::path& folder)
{
  trust_check(folder, false);
  for (fs::path above = folder; above != above.root_path();) {
    above = above.parent_path();
    trust_check(above, true);
  }
}

void folder_make(const fs::path& folder)
{
  if (folder != folder.root_path() && !fs::exists(folder.parent_path()))
    folder_make(folder.parent_path());
  check(mkdir(folder.c_str(), 0755) == 0 || errno == EEXIST, "cannot make " + folder.string());
}

bool lock(int fd, short type, int command, bool& taken)
{
  struct flock whole {};
  whole.l_type = type;
  whole.l_whence = SEEK_SET;
  const int rc = fcntl(fd, command, &whole);
  taken = command == F_OFD_GETLK ? whole.l_type != F_UNLCK : rc != 0;
  return rc == 0 || errno == EAGAIN || errno == EACCES;
}

// Whether `fd` is still what the name stands for: an orderly end takes the file away.
bool is_named(int fd, const std::string& name)
{
  struct stat opened {};
  struct stat named {};
  return fstat(fd, &opened) == 0 && lstat(name.c_str(), &named) == 0 && opened.st_ino == named.st_ino;
}

descriptor lock_take(const std::string& place)
{
  const std::string name = lock_of(place);
  while (true) {
    descriptor fd(open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    check(fd.get() >= 0, "cannot open " + name);
    bool taken = false;
    check(lock(fd.get(), F_WRLCK, F_OFD_SETLK, taken), "cannot lock " + name);
    if (taken)
      throw fatal("a kvbridged serves " + place + " already");
    if (is_named(fd.get(), name))
      return fd;
  }
}

// Takes off the trees whose kvbridged is gone.
void dead_trees_detach(const std::string& place)
{
  struct stat ignored {};
  while (stat(place.c_str(), &ignored) != 0 && (errno == ENOTCONN || errno == ECONNABORTED))
    check(umount2(place.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW) == 0, "cannot take the dead tree off " + place);
}

bool is_mount_point(const std::string& place)
{
  struct statx found {};
  check(statx(AT_FDCWD, place.c_str(), AT_SYMLINK_NOFOLLOW, STATX_INO, &found) == 0, "cannot look at " + place);
  return found.stx_attributes & STATX_ATTR_MOUNT_ROOT;
}

}  // namespace

tree_place::tree_place(const std::string& directory)
{
  const fs::path place = place_of(directory);
  path_ = place.string();
  trust_check_all(place.parent_path());
  folder_make(place.parent_path());
  lock_ = lock_take(path_);
  filters_in_force_ = !filters().empty();
  try {
    dead_trees_detach(path_);
    mount_point_make();
  } catch (...) {
    if (!filters_in_force_)
      unlink(lock_of(path_).c_str());
    throw;
  }
}

void tree_place::mount_point_make()
{
  folder_make(path_);
  trust_check(path_, false);
  if (!fs::is_empty(path_))
    throw fatal(path_ + " is not empty");
  if (!is_mount_point(path_))
    check(mount(path_.c_str(), path_.c_str(), nullptr, MS_BIND, nullptr) == 0, "cannot mount " + path_);
  check(mount(nullptr, path_.c_str(), nullptr, MS_SHARED, nullptr) == 0, "cannot share " + path_);
}

tree_place::~tree_place()
{
  if (filters_in_force_)
    return;
  umount2(path_.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW);
  rmdir(path_.c_str());
  unlink(lock_of(path_).c_str());
  const fs::path folder = fs::path(default_tree).parent_path();
  if (fs::path(path_).parent_path() == folder)
    rmdir(folder.c_str());  // the last one's
}

filter_owners tree_place::filters() const
{
  char text[65536];
  const ssize_t size = pread(lock_.get(), text, sizeof text, 0);
  std::istringstream lines(std::string(text, size > 0 ? static_cast<size_t>(size) : 0));
  filter_owners filters;
  pid_t owner = 0;
  for (std::string bridge; lines >> bridge && bridge != last_line && lines >> owner;)
    filters[bridge] = owner;
  return filters;
}

// One write: a kill leaves the old text or the new one, whatever follows its last line.
void tree_place::filters_keep(const filter_owners& filters)
{
  std::string text;
  for (const auto& [bridge, owner] : filters)
    text += bridge + " " + std::to_string(owner) + "\n";
  text += std::string(last_line) + "\n";
  check(pwrite(lock_.get(), text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()) &&
            ftruncate(lock_.get(), static_cast<off_t>(text.size())) == 0,
        "cannot write " + lock_of(path_));
  filters_in_force_ = !filters.empty();
}

std::string tree_served(const std::string& directory)
{
  const fs::path place = place_of(directory);
  trust_check_all(place.parent_path());
  const descriptor fd(open(lock_of(place).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  bool taken = false;
  std::error_code ignored;
  if (fd.get() < 0 || !lock(fd.get(), F_RDLCK, F_OFD_GETLK, taken) || !taken ||
      !fs::exists(place / "mng/config", ignored))
    throw fatal("no control tree at " + place.string() + ": is kvbridged running?");
  return place.string();
}

}  // namespace kvbridged
