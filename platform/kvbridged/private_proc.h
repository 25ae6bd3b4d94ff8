// A /proc with the control files in it, for one command.
#ifndef PLATFORM_KVBRIDGED_PRIVATE_PROC_H
#define PLATFORM_KVBRIDGED_PRIVATE_PROC_H

#include <string>
#include <vector>

namespace kvbridged {

// Runs a command in place of this process, in a mount namespace of its own whose /proc links to the real one, with the
// control tree's folders in /proc/net. Returns only by throwing fatal.
[[noreturn]] void private_proc_exec(const std::string& tree, const std::vector<std::string>& command);

// Removes the folders that commands needed, when no other kvbridged has its tree there.
void private_proc_clean();

}  // namespace kvbridged

#endif
