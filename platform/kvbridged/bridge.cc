#include "platform/kvbridged/bridge.h"

#include "platform/kvbridged/record.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <unistd.h>

namespace kvbridged {

bridge::bridge(const bridge_settings& settings, loop& events) : agent_bridge(settings)
{
  for (const port_settings& one : settings_.ports)
    port_add(one, events);
}

void bridge::port_add(const port_settings& settings, loop& events)
{
  port& added = ports_.emplace_back();
  added.index = all_.size();
  added.settings = settings;
  added.discovery = port_socket_open(settings.interface, port_frames::discovery, settings_.stag_ethertype);
  added.others = port_socket_open(settings.interface, port_frames::others, settings_.stag_ethertype);
  all_.push_back(&added);
  (settings.network ? network_ : subscribers_).push_back(&added);
  addresses_.port_add(settings.network, settings.addresses);
  for (const descriptor* socket : {&added.discovery, &added.others})
    events.watch(socket->get(), [this, &added, socket] { read(added, *socket); });
}

void bridge::attach(int device)
{
  device_ = device;
  stopped_ = false;
}

void bridge::detach()
{
  device_ = -1;
  stopped_ = false;
}

void bridge::stop()
{
  device_ = -1;
  stopped_ = true;
}

bridge::port* bridge::known_port(const mac_address& address)
{
  const auto index = addresses_.port_of(address, now_);
  return index ? all_[*index] : nullptr;
}

bridge::port* bridge::port_of(const std::string& interface)
{
  const auto at = std::ranges::find(all_, interface, [](const port* one) { return one->settings.interface; });
  return at == all_.end() ? nullptr : *at;
}

// Where a subscriber's frame goes.
std::span<bridge::port* const> bridge::network_ways(const mac_address& destination)
{
  const port* at = known_port(destination);
  return at && at->settings.network ? std::span(&all_[at->index], 1) : std::span(network_);
}

// Where a frame of the network goes.
std::span<bridge::port* const> bridge::subscriber_ways(const mac_address& destination)
{
  if (is_group(destination))
    return subscribers_;
  const port* at = known_port(destination);
  return at && !at->settings.network ? std::span(&all_[at->index], 1) : std::span<port* const>{};
}

void bridge::drop(unsigned long& reason)
{
  ++reason;
  ++counts_.dropped;
}

// A port that is busy without end lets the others have their turn.
void bridge::read(port& from, const descriptor& socket)
{
  constexpr int at_once_most = 64;
  now_ = std::chrono::steady_clock::now();
  for (int i = 0; i < at_once_most; ++i) {
    const auto frame = reader_.read(socket.get());
    if (!frame)
      return;
    take(from, *frame);
  }
}

void bridge::take(port& from, const port_frame& frame)
{
  if (frame.bytes.empty() || is_group(source_of(frame.bytes)))
    return drop(counts_.not_whole);
  const frame_class found = classify(frame.bytes, settings_.stag_ethertype);
  if (found.kind == frame_kind::hidden)
    return drop(counts_.hidden);
  if (!source_accept(from, frame.bytes))
    return drop(counts_.not_theirs);
  const mac_address destination = destination_of(frame.bytes);
  if (found.kind == frame_kind::discovery && stopped_)
    ++counts_.dropped;
  else if (found.kind == frame_kind::discovery && device_ >= 0)
    to_agent(from, frame.bytes, found.ethertype);
  else if (from.settings.network)
    forward(subscriber_ways(destination), frame, known_port(source_of(frame.bytes)));
  else
    forward(network_ways(destination), frame, &from);
}

// Learns where the frame came from. False for a subscriber's frame from an address that is not the subscriber's.
bool bridge::source_accept(port& from, frame_view frame)
{
  const mac_address source = source_of(frame);
  const port* to = known_port(destination_of(frame));
  if (addresses_.seen(source, from.index, now_, to && !to->settings.network) || from.settings.network)
    return true;
  if (!std::exchange(from.told_of_address, true))
    std::fprintf(stderr,
                 "kvbridged: %s: port %u (%s) sends from %02x:%02x:%02x:%02x:%02x:%02x, an address of another port; "
                 "such frames are dropped\n",
                 settings_.name.c_str(), from.settings.id, from.settings.interface.c_str(), source[0], source[1],
                 source[2], source[3], source[4], source[5]);
  return false;
}

// The record names one device to leave by. When there are more, from_agent() finds them again.
void bridge::to_agent(const port& from, frame_view frame, size_t ethertype)
{
  const mac_address destination = destination_of(frame);
  const bool nowhere = from.settings.network && is_group(destination);
  const auto ways = from.settings.network ? subscriber_ways(destination) : network_ways(destination);
  if (nowhere || ways.empty()) {
    ++counts_.dropped;
  } else if (frame.size() > record_frame_max(settings_.mtu)) {
    answer(from, frame, ethertype);
  } else {
    const frame_bytes record = record_make(frame, settings_.stag_ethertype, from.settings.id, from.settings.interface,
                                           ways.front()->settings.interface);
    ++(write(device_, record.data(), record.size()) < 0 ? counts_.dropped : counts_.to_agent);
  }
}

// Says to a client what the agent would say, had it room for the frame.
void bridge::answer(const port& from, frame_view frame, size_t ethertype)
{
  const auto source = answer_address(from.settings.interface);
  const auto made = source && !from.settings.network ? error_answer(frame, ethertype, *source) : std::nullopt;
  if (!made || !send(*all_[from.index], {.bytes = *made}))
    return drop(counts_.too_large);
  ++counts_.answered;
}

void bridge::from_agent(frame_view record)
{
  const auto returned = record_parse(record);
  if (!returned)
    return;
  ++counts_.from_agent;
  now_ = std::chrono::steady_clock::now();
  const mac_address destination = destination_of(returned->frame);
  port* to = returned->output_device.empty() ? known_port(destination) : port_of(returned->output_device);
  if (!to)
    ++counts_.dropped;
  else if (to->settings.network)  // so it is a subscriber's
    forward(network_ways(destination), {.bytes = returned->frame}, nullptr);
  else
    forward(std::span(&all_[to->index], 1), {.bytes = returned->frame}, nullptr);
}

void bridge::forward(std::span<port* const> ways, const port_frame& frame, const port* except)
{
  bool left = false;
  for (port* to : ways)
    if (to != except)
      left = send(*to, frame) || left;
  ++(left ? counts_.forwarded : counts_.dropped);
}

bool bridge::send(port& to, const port_frame& frame)
{
  const int error = port_socket_send(to.discovery.get(), frame);
  if (error == 0)
    return true;
  ++counts_.device_refused;
  if (error == EMSGSIZE && !std::exchange(to.told_of_size, true))
    std::fprintf(stderr, "kvbridged: %s: port %u (%s) does not take a frame of %zu bytes: larger than its MTU\n",
                 settings_.name.c_str(), to.settings.id, to.settings.interface.c_str(), frame.bytes.size());
  return false;
}

std::string bridge::statistics() const
{
  std::string line = settings_.name + ":";
  const std::pair<const char*, unsigned long> counts[] = {
      {"to agent", counts_.to_agent},   {"from agent", counts_.from_agent},
      {"forwarded", counts_.forwarded}, {"dropped", counts_.dropped},
      {"answered", counts_.answered},   {"too large", counts_.too_large},
      {"hidden", counts_.hidden},       {"not theirs", counts_.not_theirs},
      {"not whole", counts_.not_whole}, {"refused by device", counts_.device_refused},
  };
  for (const auto& [name, count] : counts)
    line += std::string(line.ends_with(':') ? " " : ", ") + name + " " + std::to_string(count);
  return line;
}

}  // namespace kvbridged
