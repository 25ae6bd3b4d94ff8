#include "platform/kvbridged/modules.h"

#include "platform/kvbridged/tap.h"

#include <algorithm>
#include <cerrno>

namespace kvbridged {
modules::modules(const std::vector<bridge_settings>& settings, loop& events) : events_(events)
{
  for (const bridge_settings& one : settings)
    bridges_.emplace_back(one, events);
}

modules::~modules()
{
  for (const auto& [name, device] : devices_)
    events_.forget(device.get());
}

// The device's MTU is its bridge's (devices are named after their bridge): the agent takes it for the largest frame
// that leaves it, and raises it itself when a record needs more. So an agent that starts finds it as it was.
int modules::device_create(const std::string& name)
{
  if (name.empty() || name.size() > 15)
    return EINVAL;
  int mtu = 1500;
  for (const bridge& one : bridges_)
    if (name == (one.settings().name + "_pppoe").substr(0, 15))
      mtu = one.settings().mtu;
  if (devices_.contains(name)) {
    tap_mtu_set(name, mtu);
    return EEXIST;
  }
  descriptor device = tap_open(name, mtu);
  if (device.get() < 0)
    return errno;
  events_.watch(device.get(), [this, name] { device_read(name); });
  devices_.emplace(name, std::move(device));
  return 0;
}

int modules::device_delete(const std::string& name)
{
  const auto at = devices_.find(name);
  if (at == devices_.end())
    return ENODEV;
  if (const auto diverted = diverted_.find(name); diverted != diverted_.end()) {
    bridges_[diverted->second].detach();
    diverted_.erase(diverted);
  }
  events_.forget(at->second.get());
  devices_.erase(at);
  return 0;
}

int modules::filter_attach(size_t bridge, const std::string& filter, const std::string& device)
{
  const auto at = devices_.find(device);
  if (filter != "pppoe")
    return EINVAL;
  if (at == devices_.end())
    return ENODEV;
  bridge_closed(bridge);
  diverted_[device] = bridge;
  bridges_[bridge].attach(at->second.get());
  return 0;
}

void modules::bridge_closed(size_t bridge)
{
  std::erase_if(diverted_, [&](const auto& entry) { return entry.second == bridge; });
  bridges_[bridge].detach();
}

void modules::device_read(const std::string& name)
{
  const auto device = devices_.find(name);
  unsigned char record[65536];
  while (true) {
    const ssize_t size = read(device->second.get(), record, sizeof record);
    if (size <= 0)
      return;
    if (const auto at = diverted_.find(name); at != diverted_.end())
      bridges_[at->second].from_agent({record, static_cast<size_t>(size)});
  }
}

std::string modules::statistics() const
{
  std::string lines;
  for (const bridge& one : bridges_)
    lines += one.statistics() + "\n";
  return lines;
}

}  // namespace kvbridged
