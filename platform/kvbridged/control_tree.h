// The modules' control files as a file system in user space (FUSE):
//
//   mng/config   kvbridge/config   kvbridge/<bridge>/bridge
//
// Requests come as ioctl on an open file. The request codes say 4 bytes for every argument, so that FUSE hands over no
// more; names and records are read from the caller's memory.
#ifndef PLATFORM_KVBRIDGED_CONTROL_TREE_H
#define PLATFORM_KVBRIDGED_CONTROL_TREE_H

#include "platform/kvbridged/loop.h"
#include "platform/kvbridged/modules.h"

#include <string>

struct fuse_session;

namespace kvbridged {

class control_tree {
public:
  // Mounts the tree at `mount_point`, a directory that is made when it is missing, and serves it in `events`. Throws
  // fatal.
  control_tree(modules& modules, loop& events, const std::string& mount_point);
  // Unmounts it.
  ~control_tree();
  control_tree(const control_tree&) = delete;
  control_tree& operator=(const control_tree&) = delete;

private:
  void serve();

  loop& events_;
  fuse_session* session_ = nullptr;
  std::string mount_point_;
};

}  // namespace kvbridged

#endif
