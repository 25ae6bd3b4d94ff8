// One thread's wait for many descriptors.
#ifndef PLATFORM_KVBRIDGED_LOOP_H
#define PLATFORM_KVBRIDGED_LOOP_H

#include <functional>
#include <map>
#include <poll.h>
#include <vector>

namespace kvbridged {

class loop {
public:
  // `ready` is called when `fd` can be read, until forget(fd).
  void watch(int fd, std::function<void()> ready) { handlers_[fd] = std::move(ready); }
  void forget(int fd) { handlers_.erase(fd); }
  void end() { ending_ = true; }

  // Serves until end(). Handlers may watch and forget.
  void run()
  {
    while (!ending_) {
      std::vector<pollfd> waits;
      for (const auto& [fd, ready] : handlers_)
        waits.push_back({fd, POLLIN, 0});
      if (poll(waits.data(), waits.size(), -1) <= 0)
        continue;
      for (const pollfd& wait : waits)
        if (wait.revents != 0)
          serve(wait.fd);
    }
  }

private:
  void serve(int fd)
  {
    // A copy: the handler may forget itself.
    if (const auto at = handlers_.find(fd); at != handlers_.end() && !ending_) {
      const std::function<void()> ready = at->second;
      ready();
    }
  }

  std::map<int, std::function<void()>> handlers_;
  bool ending_ = false;
};

}  // namespace kvbridged

#endif
