#include "rte/BLL/core/settings/settings_file.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

namespace Storage {

namespace {

bool writeAll(int fd, std::string_view content)
{
  while (!content.empty()) {
    const ssize_t written = ::write(fd, content.data(), content.size());
    if (written < 0 && errno != EINTR)
      return false;
    content.remove_prefix(static_cast<size_t>(std::max<ssize_t>(written, 0)));
  }
  return true;
}

// Opened without blocking, written with: a FIFO that nobody reads is an error, a terminal may take its time.
bool writeInPlace(const std::string& path, std::string_view content)
{
  const descriptor file(::open(path.c_str(), O_WRONLY | O_TRUNC | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  return file && fcntl(file.get(), F_SETFL, 0) == 0 && writeAll(file.get(), content);
}

// A new file beside `path`, or -1. Its name is nobody's: saves at the same time, and what one that was killed has left
// behind, have other ones. Unlike mkostemp() it leaves the mode to the umask.
int createBeside(const std::string& path, std::string& name)
{
  constexpr int mostTries = 100;
  std::random_device random;
  int fd = -1;
  for (int tries = 0; tries < mostTries; ++tries) {
    char suffix[16];
    std::snprintf(suffix, sizeof suffix, ".%08x", random());
    name = path + suffix;
    fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0 || errno != EEXIST)
      break;
  }
  return fd;
}

// `old` is what stands at the path, null if nothing does. Its owner is kept where the process may give files away.
bool replace(const std::string& path, std::string_view content, const struct stat* old)
{
  std::string fresh;
  const descriptor file(createBeside(path, fresh));
  if (!file)
    return false;
  const bool sameOwner = !old || fchown(file.get(), old->st_uid, old->st_gid) == 0;
  const bool sameMode = !old || fchmod(file.get(), old->st_mode & (sameOwner ? 07777U : 0777U)) == 0;
  if (sameMode && writeAll(file.get(), content) && fsync(file.get()) == 0 &&
      std::rename(fresh.c_str(), path.c_str()) == 0)
    return true;
  const int error = errno;
  ::unlink(fresh.c_str());
  errno = error;
  return false;
}

// The file that a path leads to through symbolic links; the path itself if there is none.
std::string resolved(const std::string& path)
{
  const std::unique_ptr<char, decltype(&std::free)> target(::realpath(path.c_str(), nullptr), &std::free);
  return target ? target.get() : path;
}

}  // namespace

inputFile_t::inputFile_t(const std::string& path)
    : fd_(::open(path.c_str(), O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
{
  struct stat status = {};
  good_ = fd_ && fstat(fd_.get(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size <= off_t{max};
}

int inputFile_t::read(char* buffer, int size)
{
  if (!good_)
    return -1;
  ssize_t count;
  do
    count = ::read(fd_.get(), buffer, static_cast<size_t>(size));
  while (count < 0 && errno == EINTR);
  good_ = count >= 0 && static_cast<size_t>(count) <= left_;
  if (!good_)
    return -1;
  left_ -= static_cast<size_t>(count);
  return static_cast<int>(count);
}

bool writeFile(const std::string& path, std::string_view content)
{
  const std::string target = resolved(path);
  struct stat status = {};
  const bool exists = stat(target.c_str(), &status) == 0;
  if (exists && !S_ISREG(status.st_mode))
    return writeInPlace(target, content);
  if (exists && access(target.c_str(), W_OK) != 0)
    return false;  // renaming would do what writing may not
  if (replace(target, content, exists ? &status : nullptr))
    return true;
  // A folder that is closed to us, or a file that is a mount point.
  const bool onlyInPlace = errno == EACCES || errno == EPERM || errno == EROFS || errno == EBUSY;
  return exists && onlyInPlace && writeInPlace(target, content);
}

}  // namespace Storage
