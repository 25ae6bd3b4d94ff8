// What the control files do: the modules kvmng (pseudo devices) and kvbridge (bridges and their filters).
#ifndef PLATFORM_KVBRIDGED_MODULES_H
#define PLATFORM_KVBRIDGED_MODULES_H

#include "platform/kvbridged/bridge.h"

#include <deque>
#include <map>
#include <string>

namespace kvbridged {

class modules {
public:
  modules(const std::vector<bridge_settings>& settings, loop& events);
  ~modules();
  modules(const modules&) = delete;
  modules& operator=(const modules&) = delete;

  static constexpr int32_t kvmng_version = 3;
  static constexpr int32_t kvbridge_version = 56;

  // Each 0 or an errno value.
  int device_create(const std::string& name);
  int device_delete(const std::string& name);
  int filter_attach(size_t bridge, const std::string& filter, const std::string& device);
  // The bridge's control file was closed for the last time: its filter goes.
  void bridge_closed(size_t bridge);

  size_t bridge_count() const { return bridges_.size(); }
  const bridge_settings& settings(size_t bridge) const { return bridges_[bridge].settings(); }
  // A line a bridge.
  std::string statistics() const;

private:
  void device_read(const std::string& name);

  loop& events_;
  std::deque<bridge> bridges_;
  std::map<std::string, descriptor> devices_;
  std::map<std::string, size_t> diverted_;  // device -> bridge whose filter leads there
};

}  // namespace kvbridged

#endif
