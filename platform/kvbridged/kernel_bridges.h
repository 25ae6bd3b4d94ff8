// What the rest of kvbridged knows of kernel bridges, whose folder it need not look into. Where the build has no eBPF,
// each says so.
#ifndef PLATFORM_KVBRIDGED_KERNEL_BRIDGES_H
#define PLATFORM_KVBRIDGED_KERNEL_BRIDGES_H

#include "platform/kvbridged/agent_bridge.h"
#include "platform/kvbridged/loop.h"

#include <memory>
#include <string>

namespace kvbridged {

// The bridge's settings have `kernel`. Throws fatal.
std::unique_ptr<agent_bridge> kernel_bridge_make(const bridge_settings& settings, loop& events);

// What the programs in the kernel count, of all bridges of this network, whether their kvbridged lives or not: lines of
// text, or JSON. Throws fatal.
std::string kernel_status(bool json);

// Takes off what a kvbridged that is gone left at the members of that bridge. What was done, a line each interface.
// Throws fatal, also while one serves the bridge.
std::string kernel_release(const std::string& bridge);

}  // namespace kvbridged

#endif
