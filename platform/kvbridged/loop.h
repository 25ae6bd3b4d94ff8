// One thread's wait for many descriptors.
#ifndef PLATFORM_KVBRIDGED_LOOP_H
#define PLATFORM_KVBRIDGED_LOOP_H

#include <cerrno>
#include <functional>
#include <map>
#include <poll.h>
#include <system_error>
#include <vector>

namespace kvbridged {

class loop {
public:
  using handler = std::function<void()>;

  // `ready` is called when `fd` can be read or has an error to tell, until forget(fd). A descriptor whose error is
  // still there afterwards has nothing more to give (its device is gone): it is forgotten, and `gone` is called.
  void watch(int fd, handler ready, handler gone = {}) { handlers_[fd] = {std::move(ready), std::move(gone)}; }
  void forget(int fd) { handlers_.erase(fd); }
  void end() { ending_ = true; }

  // Serves until end(). Handlers may watch and forget; what one throws ends it, and is the caller's.
  void run()
  {
    while (!ending_) {
      std::vector<pollfd> waits;
      for (const auto& [fd, handler_pair] : handlers_)
        waits.push_back({fd, POLLIN, 0});
      const int ready = poll(waits.data(), waits.size(), -1);
      if (ready < 0 && errno != EINTR)
        throw std::system_error(errno, std::generic_category(), "poll");
      for (const pollfd& wait : waits)
        if (ready > 0 && wait.revents != 0)
          serve(wait);
    }
  }

private:
  static constexpr short failing = POLLERR | POLLHUP | POLLNVAL;

  struct handlers {
    handler ready;
    handler gone;
  };

  void serve(const pollfd& event)
  {
    const auto at = handlers_.find(event.fd);
    if (at == handlers_.end() || ending_)
      return;
    const handlers to_call = at->second;  // a copy: the handler may forget itself
    to_call.ready();
    if (!(event.revents & failing) || !handlers_.contains(event.fd) || !is_dead(event.fd))
      return;
    forget(event.fd);
    if (to_call.gone)
      to_call.gone();
  }

  // Reading an error takes it off a descriptor that still lives.
  static bool is_dead(int fd)
  {
    pollfd now{fd, POLLIN, 0};
    return poll(&now, 1, 0) == 1 && (now.revents & failing) && !(now.revents & POLLIN);
  }

  std::map<int, handlers> handlers_;
  bool ending_ = false;
};

}  // namespace kvbridged

#endif
