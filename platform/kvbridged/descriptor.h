// A file descriptor that closes itself.
#ifndef PLATFORM_KVBRIDGED_DESCRIPTOR_H
#define PLATFORM_KVBRIDGED_DESCRIPTOR_H

#include <unistd.h>
#include <utility>

namespace kvbridged {

class descriptor {
public:
  explicit descriptor(int fd = -1) : fd_(fd) {}
  descriptor(descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  descriptor& operator=(descriptor&& other) noexcept
  {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~descriptor()
  {
    if (fd_ >= 0)
      close(fd_);
  }
  int get() const { return fd_; }

private:
  int fd_;
};

}  // namespace kvbridged

#endif
