// The modules' control files as a file system in user space (FUSE):
//
//   mng/config   kvbridge/config   kvbridge/<bridge>/bridge
//
// Requests come as ioctl on an open file. The request codes say 4 bytes for every argument, so that FUSE hands over no
// more; names and records are read from the caller's memory.
//
// Root alone may use them. The mount lets nobody in whose user and group ids are not all those of the process that
// mounted it, also by a descriptor that was opened by root; and each open and each request is refused when the thread's
// file-system user is not root (a service that opens what a user named does so in that user's name). Capabilities are
// not asked for: root with few of them is still root.
#ifndef PLATFORM_KVBRIDGED_CONTROL_TREE_H
#define PLATFORM_KVBRIDGED_CONTROL_TREE_H

#include "platform/kvbridged/loop.h"
#include "platform/kvbridged/modules.h"

#include <cstdint>
#include <map>
#include <string>

struct fuse_session;

namespace kvbridged {

class control_tree {
public:
  // Mounts the tree at `mount_point`, a directory, and serves it in `events`; when somebody else unmounts it,
  // events.run() throws fatal. Throws fatal.
  control_tree(modules& modules, loop& events, const std::string& mount_point);
  // Unmounts it.
  ~control_tree();
  control_tree(const control_tree&) = delete;
  control_tree& operator=(const control_tree&) = delete;

  // For the file system's functions.
  struct requests {
    modules& all;
    uint64_t opens = 0;
    // For each bridge, the open of its file that attached the filter: its release takes the filter off.
    std::map<size_t, uint64_t> filter_opens{};
  };

private:
  void serve();

  loop& events_;
  requests requests_;
  fuse_session* session_ = nullptr;
};

}  // namespace kvbridged

#endif
