#include "base/listener.h"

#include "base/descriptor.h"

#include <cerrno>
#include <cstring>
#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr int backlog = 64;

int local_socket(int type)
{
  return socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

bool address_make(const std::string& path, sockaddr_un& address)
{
  address = {};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return false;
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  return true;
}

// Removes the file of a server that is gone. False, with errno set, when the path is somebody's.
bool stale_remove(const std::string& path, const sockaddr_un& address, int type)
{
  struct stat file {};
  if (lstat(path.c_str(), &file) != 0)
    return errno == ENOENT;
  const descriptor probe(local_socket(type));
  const bool is_socket = S_ISSOCK(file.st_mode);
  const bool nobody = is_socket && probe &&
                      connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
                      errno == ECONNREFUSED;
  if (!nobody) {
    errno = EADDRINUSE;
    return false;
  }
  return unlink(path.c_str()) == 0;
}

// The file is the owner's alone until its group is set.
bool bind_for_group(int fd, const std::string& path, const sockaddr_un& address)
{
  const mode_t former = umask(0177);
  const int rc = bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  umask(former);
  if (rc != 0)
    return false;
  if (const group* operators = getgrnam("pppoeia"))
    (void)!chown(path.c_str(), static_cast<uid_t>(-1), operators->gr_gid);
  return chmod(path.c_str(), 0660) == 0;
}

}  // namespace

int listener_open(const std::string& path, int type)
{
  sockaddr_un address;
  if (!address_make(path, address) || !stale_remove(path, address, type))
    return -1;
  descriptor fd(local_socket(type));
  if (!fd || !bind_for_group(fd.get(), path, address) || listen(fd.get(), backlog) != 0)
    return -1;
  return fd.release();
}
