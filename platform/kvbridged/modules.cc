#include "platform/kvbridged/modules.h"

#include "platform/kvbridge/control.h"
#include "platform/kvbridged/bridge.h"
#include "platform/kvbridged/kernel_bridges.h"
#include "platform/kvbridged/tap.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace kvbridged {

std::unique_ptr<agent_bridge> bridge_make(const bridge_settings& settings, loop& events)
{
  if (settings.kernel)
    return kernel_bridge_make(settings, events);
  return std::make_unique<bridge>(settings, events);
}

modules::modules(const std::vector<bridge_settings>& settings, loop& events, filter_owners filters,
                 std::function<void(const filter_owners&)> keep)
    : events_(events), filters_(std::move(filters)), keep_(std::move(keep))
{
  for (const bridge_settings& one : settings) {
    bridges_.push_back(bridge_make(one, events));
    if (filters_.contains(one.name))
      bridges_.back()->stop();
  }
  const auto unknown = [&](const auto& filter) {
    return std::ranges::none_of(settings, [&](const auto& one) { return one.name == filter.first; });
  };
  if (std::erase_if(filters_, unknown) > 0 && keep_)
    keep_(filters_);
}

modules::~modules()
{
  for (const auto& [bridge, device] : devices_)
    events_.forget(device.tap.get());
}

std::optional<size_t> modules::bridge_of_device(const std::string& name) const
{
  for (size_t i = 0; i < bridges_.size(); ++i)
    if (name == pseudo_device_name(bridges_[i]->settings().name))
      return i;
  return std::nullopt;
}

// Throws when the change cannot be kept; then it is not made either.
void modules::filters_change(const std::string& bridge, std::optional<pid_t> owner)
{
  filter_owners changed = filters_;
  if (owner)
    changed[bridge] = *owner;
  else
    changed.erase(bridge);
  if (keep_)
    keep_(changed);
  filters_ = std::move(changed);
}

// The device's MTU is its bridge's: the agent takes it for the largest frame that leaves it, and raises it itself when
// a record needs more. So an agent that starts finds it as it was.
int modules::device_create(const std::string& name)
{
  const auto bridge = bridge_of_device(name);
  if (!bridge)
    return EINVAL;
  const int mtu = bridges_[*bridge]->settings().mtu;
  if (devices_.contains(*bridge)) {
    tap_mtu_set(name, mtu);
    return EEXIST;
  }
  descriptor device = tap_open(name, mtu);
  if (device.get() < 0)
    return errno;
  events_.watch(
      device.get(), [this, at = *bridge] { device_read(at); }, [this, at = *bridge] { device_gone(at); });
  devices_[*bridge].tap = std::move(device);
  return 0;
}

int modules::device_delete(const std::string& name, pid_t process)
{
  const auto bridge = bridge_of_device(name);
  if (!bridge)
    return ENODEV;
  const std::string& owned = settings(*bridge).name;
  const auto filter = filters_.find(owned);
  const bool orderly = filter != filters_.end() && filter->second == process;
  if (orderly)
    filters_change(owned, std::nullopt);
  if (filters_.contains(owned))
    bridges_[*bridge]->stop();
  else
    bridges_[*bridge]->detach();
  const auto device = devices_.find(*bridge);
  if (device == devices_.end())
    return ENODEV;
  events_.forget(device->second.tap.get());
  devices_.erase(device);
  return 0;
}

int modules::filter_attach(size_t bridge, const std::string& filter, const std::string& device, pid_t process)
{
  if (filter != pppoe_filter || bridge_of_device(device) != bridge)
    return EINVAL;
  const auto at = devices_.find(bridge);
  if (at == devices_.end())
    return ENODEV;
  filters_change(settings(bridge).name, process);
  bridges_[bridge]->attach(at->second.tap.get());
  at->second.filtered = true;
  return 0;
}

void modules::bridge_closed(size_t bridge)
{
  if (const auto device = devices_.find(bridge); device != devices_.end())
    device->second.filtered = false;
  if (filters_.contains(settings(bridge).name))
    bridges_[bridge]->stop();
}

void modules::device_read(size_t bridge)
{
  const pseudo_device& device = devices_.at(bridge);
  unsigned char record[65536];
  for (ssize_t size; (size = read(device.tap.get(), record, sizeof record)) > 0;)
    if (device.filtered)
      bridges_[bridge]->from_agent({record, static_cast<size_t>(size)});
}

// Somebody deleted the network device. The agent has it made anew.
void modules::device_gone(size_t bridge)
{
  std::fprintf(stderr, "kvbridged: the pseudo device of %s was deleted by somebody else\n",
               settings(bridge).name.c_str());
  bridge_closed(bridge);
  devices_.erase(bridge);
}

std::string modules::statistics() const
{
  std::string lines;
  for (size_t i = 0; i < bridges_.size(); ++i) {
    const auto device = devices_.find(i);
    const bool stopped = filters_.contains(settings(i).name) && (device == devices_.end() || !device->second.filtered);
    lines += bridges_[i]->statistics() + (stopped ? ", discovery stopped\n" : "\n");
  }
  return lines;
}

}  // namespace kvbridged
