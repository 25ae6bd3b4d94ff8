// A /proc with the control files in it, for one command.
#ifndef PLATFORM_KVBRIDGED_PRIVATE_PROC_H
#define PLATFORM_KVBRIDGED_PRIVATE_PROC_H

#include <string>
#include <vector>

namespace kvbridged {

// Runs a command in place of this process, in a mount namespace of its own whose /proc links to the real one (there as
// /proc/.real) and, in /proc/net, to the control tree's folders: to those of whichever kvbridged serves the tree, now
// or later. Nothing of it is seen outside, and it ends with the command. Returns only by throwing fatal.
[[noreturn]] void private_proc_exec(const std::string& tree, const std::vector<std::string>& command);

}  // namespace kvbridged

#endif
