#include "platform/kvbridged/bridge.h"

#include "platform/kvbridged/port_socket.h"

#include <sys/socket.h>

namespace kvbridged {
namespace {

constexpr size_t learned_max = 65536;

}  // namespace

bridge::bridge(const bridge_settings& settings, loop& events) : settings_(settings)
{
  for (const port_settings& one : settings_.ports) {
    port& added = ports_.emplace_back();
    added.settings = one;
    added.discovery = port_socket_open(one.interface, port_frames::discovery, settings_.stag_ethertype);
    added.others = port_socket_open(one.interface, port_frames::others, settings_.stag_ethertype);
    events.watch(added.discovery.get(), [this, &added] { read_discovery(added); });
    events.watch(added.others.get(), [this, &added] { read_others(added); });
  }
}

void bridge::attach(int device)
{
  device_ = device;
}

void bridge::detach()
{
  device_ = -1;
}

void bridge::learn(std::span<const unsigned char> frame, const port& at)
{
  const mac_address source = source_of(frame);
  if (!is_group(source) && (learned_.size() < learned_max || learned_.contains(source)))
    learned_[source] = const_cast<port*>(&at);
}

// Where a frame goes: from subscribers to the network, from the network to whom it is for. Null for nowhere.
bridge::port* bridge::way_of(std::span<const unsigned char> frame, const port& from)
{
  if (from.settings.network) {
    const auto at = learned_.find(destination_of(frame));
    return at == learned_.end() || at->second == &from ? nullptr : at->second;
  }
  for (port& one : ports_)
    if (one.settings.network)
      return &one;
  return nullptr;
}

bridge::port* bridge::port_of(const std::string& interface)
{
  for (port& one : ports_)
    if (one.settings.interface == interface)
      return &one;
  return nullptr;
}

void bridge::send(const port& to, std::span<const unsigned char> frame)
{
  if (::send(to.discovery.get(), frame.data(), frame.size(), 0) < 0)
    ++dropped_;
  else
    ++forwarded_;
}

void bridge::forward(std::span<const unsigned char> frame, const port& from)
{
  if (from.settings.network && is_group(destination_of(frame))) {
    for (port& one : ports_)
      if (!one.settings.network)
        send(one, frame);
  } else if (const port* to = way_of(frame, from)) {
    send(*to, frame);
  } else {
    ++dropped_;
  }
}

void bridge::read_discovery(port& from)
{
  frame_bytes frame;
  while (port_socket_read(from.discovery.get(), frame)) {
    if (frame.size() < ethernet_header)
      continue;
    learn(frame, from);
    const port* to = way_of(frame, from);
    if (device_ < 0) {
      forward(frame, from);
    } else if (!to) {
      ++dropped_;
    } else {
      const frame_bytes record = record_make(frame, settings_.stag_ethertype, from.settings.id, from.settings.interface,
                                             to->settings.interface);
      ++(write(device_, record.data(), record.size()) < 0 ? dropped_ : to_agent_);
    }
  }
}

void bridge::read_others(port& from)
{
  frame_bytes frame;
  while (port_socket_read(from.others.get(), frame)) {
    if (frame.size() < ethernet_header)
      continue;
    learn(frame, from);
    forward(frame, from);
  }
}

void bridge::from_agent(std::span<const unsigned char> record)
{
  const auto returned = record_parse(record);
  if (!returned)
    return;
  ++from_agent_;
  const port* to = nullptr;
  if (!returned->output_device.empty())
    to = port_of(returned->output_device);
  else if (const auto at = learned_.find(destination_of(returned->frame)); at != learned_.end())
    to = at->second;
  if (to)
    send(*to, returned->frame);
  else
    ++dropped_;
}

std::string bridge::statistics() const
{
  return settings_.name + ": to agent " + std::to_string(to_agent_) + ", from agent " + std::to_string(from_agent_) +
         ", forwarded " + std::to_string(forwarded_) + ", dropped " + std::to_string(dropped_);
}

}  // namespace kvbridged
