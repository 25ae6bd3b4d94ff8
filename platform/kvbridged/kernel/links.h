// The machine's network interfaces, as the kernel tells of them by netlink.
#ifndef PLATFORM_KVBRIDGED_KERNEL_LINKS_H
#define PLATFORM_KVBRIDGED_KERNEL_LINKS_H

#include "platform/kvbridged/kernel/netlink.h"
#include "platform/kvbridged/loop.h"

#include <functional>
#include <string>
#include <vector>

namespace kvbridged {

struct link_info {
  int index = 0;
  int master = 0;  // index of the interface that it is enslaved to, 0 for none
  std::string name{};
  bool is_bridge = false;
};

// All that there are. Throws fatal.
std::vector<link_info> links_all();

// Tells of changes as they come.
class link_watch {
public:
  struct listener {
    std::function<void(const link_info&)> seen;  // new, renamed, enslaved, set free
    std::function<void(int index)> gone;
    std::function<void(int index)> filters;  // filters or qdiscs of it changed
    std::function<void()> lost;              // changes were missed: look at all again
  };

  // Throws fatal.
  link_watch(loop& events, listener told);
  ~link_watch();
  link_watch(const link_watch&) = delete;
  link_watch& operator=(const link_watch&) = delete;

private:
  void read();

  loop& events_;
  listener listener_;
  netlink_socket socket_;
};

}  // namespace kvbridged

#endif
