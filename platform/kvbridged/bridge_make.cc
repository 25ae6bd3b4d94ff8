#include "platform/kvbridged/bridge.h"
#include "platform/kvbridged/kernel/entry.h"

namespace kvbridged {

std::unique_ptr<agent_bridge> bridge_make(const bridge_settings& settings, loop& events)
{
  if (settings.kernel)
    return kernel_bridge_make(settings, events);
  return std::make_unique<bridge>(settings, events);
}

}  // namespace kvbridged
