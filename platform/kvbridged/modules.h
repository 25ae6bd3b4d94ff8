// What the control files do: the modules kvmng (pseudo devices) and kvbridge (bridges and their filters).
//
// A bridge has at most one pseudo device, which is named after it, and at most one filter, which leads there:
//
//   no filter -> attached -> stopped (the filter's control file was closed, or the device went) -> attached again
//       ^                       |
//       +--- device deleted by the process that attached the filter
//
// A process that deletes a bridge closes its control file and then deletes the device; one that dies does the first
// alone. So the discovery of a bridge whose agent died is stopped, and does not pass untagged.
#ifndef PLATFORM_KVBRIDGED_MODULES_H
#define PLATFORM_KVBRIDGED_MODULES_H

#include "base/descriptor.h"
#include "platform/kvbridged/agent_bridge.h"
#include "platform/kvbridged/loop.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace kvbridged {

// For each bridge whose filter is in force, by name: the process that attached it last.
using filter_owners = std::map<std::string, pid_t>;

// The bridge that the settings ask for. Throws fatal.
std::unique_ptr<agent_bridge> bridge_make(const bridge_settings& settings, loop& events);

class modules {
public:
  // `filters` are in force from before: their bridges begin stopped. `keep` is told of each change of them.
  modules(const std::vector<bridge_settings>& settings, loop& events, filter_owners filters = {},
          std::function<void(const filter_owners&)> keep = {});
  ~modules();
  modules(const modules&) = delete;
  modules& operator=(const modules&) = delete;

  // Each 0 or an errno value. `process` is who asks.
  int device_create(const std::string& name);
  int device_delete(const std::string& name, pid_t process);
  int filter_attach(size_t bridge, const std::string& filter, const std::string& device, pid_t process);
  // The control file that the bridge's filter was attached by was closed.
  void bridge_closed(size_t bridge);

  size_t bridge_count() const { return bridges_.size(); }
  const bridge_settings& settings(size_t bridge) const { return bridges_[bridge]->settings(); }
  // A line a bridge.
  std::string statistics() const;

private:
  struct pseudo_device {
    descriptor tap;
    bool filtered = false;  // what comes from it is the agent's
  };

  std::optional<size_t> bridge_of_device(const std::string& name) const;
  void device_read(size_t bridge);
  void device_gone(size_t bridge);
  void filters_change(const std::string& bridge, std::optional<pid_t> owner);

  loop& events_;
  std::vector<std::unique_ptr<agent_bridge>> bridges_;
  std::map<size_t, pseudo_device> devices_;  // by bridge
  filter_owners filters_;
  std::function<void(const filter_owners&)> keep_;
};

}  // namespace kvbridged

#endif
