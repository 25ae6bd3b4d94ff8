// A file descriptor that closes itself, with errno as it was.
#ifndef BASE_DESCRIPTOR_H
#define BASE_DESCRIPTOR_H

#include <cerrno>
#include <unistd.h>
#include <utility>

// `Close` is what takes the number back: a function object of one int. -1 stands for none.
template <typename Close>
class owned_descriptor {
public:
  explicit owned_descriptor(int fd = -1) : fd_(fd) {}
  owned_descriptor(owned_descriptor&& other) noexcept : fd_(other.release()) {}
  owned_descriptor& operator=(owned_descriptor&& other) noexcept
  {
    reset(other.release());
    return *this;
  }
  ~owned_descriptor() { reset(); }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

  // Hands the number to the caller, who closes it.
  [[nodiscard]] int release() { return std::exchange(fd_, -1); }

  // Closes what it has and takes `fd` instead.
  void reset(int fd = -1)
  {
    const int former = std::exchange(fd_, fd);
    if (former < 0)
      return;
    const int reason = errno;
    Close{}(former);
    errno = reason;
  }

private:
  int fd_;
};

struct system_close {
  void operator()(int fd) const { ::close(fd); }
};

using descriptor = owned_descriptor<system_close>;

#endif
