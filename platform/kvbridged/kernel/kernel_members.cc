#include "platform/kvbridged/kernel/kernel_members.h"

#include "platform/kvbridged/kernel/found_programs.h"
#include "platform/kvbridged/kernel/port_numbers.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace kvbridged {

void tell(const std::string& bridge, const std::string& text)
{
  std::fprintf(stderr, "kvbridged: %s: %s\n", bridge.c_str(), text.c_str());
}

kernel_members::kernel_members(const bridge_settings& settings, tc_programs& programs, loop& events,
                               std::function<void(int)> others)
    : settings_(settings), programs_(programs), others_(std::move(others)),
      links_(events, {.seen = [this](const link_info& link) { link_seen(link); },
                      .gone = [this](int index) { link_gone(index); },
                      .filters = [this](int index) { filters_changed(index); },
                      .lost = [this] { changes_lost(); }})
{
  look_at_all();
  leftovers_take_off();
  if (std::ranges::none_of(members_, [](const auto& one) { return one.second.role.uplink; }))
    tell(settings_.name, "none of its members is an --uplink: there is nowhere for discovery to go");
}

const kernel_members::member* kernel_members::find(int index) const
{
  const auto at = members_.find(index);
  return at == members_.end() ? nullptr : &at->second;
}

int kernel_members::index_of(uint16_t number) const
{
  const auto at = by_number_.find(number);
  return at == by_number_.end() ? 0 : at->second;
}

void kernel_members::detach_all()
{
  for (const auto& [index, known] : members_)
    programs_.member_detach(index);
}

kvb_counts kernel_members::counts() const
{
  kvb_counts all{};
  for (const auto& [index, known] : members_) {
    const kvb_counts one = programs_.counts(index);
    all.captured += one.captured;
    all.given_back += one.given_back;
    all.refused_by_rate += one.refused_by_rate;
    all.stopped += one.stopped;
    all.passed += one.passed;
    all.hidden += one.hidden;
    all.untreated += one.untreated;
  }
  return all;
}

void kernel_members::look_at_all()
{
  std::vector<link_info> links = links_all();
  // Uplinks first: once they are guarded, nothing that passes a subscriber's port without a program gets out.
  std::stable_partition(links.begin(), links.end(),
                        [&](const link_info& link) { return settings_.kernel.value().uplinks.contains(link.name); });
  std::map<int, member> gone = members_;
  for (const link_info& link : links)
    if (link.is_bridge && link.name == settings_.name)
      bridge_index_ = link.index;
  for (const link_info& link : links) {
    gone.erase(link.index);
    link_seen(link);
  }
  for (const auto& [index, former] : gone)
    link_gone(index);
}

// What a former kvbridged left at interfaces that are no members any more.
void kernel_members::leftovers_take_off() const
{
  for (const link_info& link : links_all()) {
    const auto found = members_.contains(link.index) ? std::nullopt : found_programs::at(link.index);
    if (found && found->bridge() == settings_.name)
      programs_.former_detach(link.index);
  }
}

void kernel_members::link_seen(const link_info& link)
{
  if (link.name.empty())
    return;  // a message about something else
  const bool is_this = link.is_bridge && link.name == settings_.name;
  if (is_this && std::exchange(bridge_index_, link.index) != link.index)
    return look_at_all();
  const bool belongs = bridge_index_ != 0 && link.master == bridge_index_;
  const auto at = members_.find(link.index);
  if (belongs && (at == members_.end() || at->second.name != link.name)) {
    members_[link.index].name = link.name;
    numbers_assign();
  } else if (!belongs && at != members_.end()) {
    member_leave(link.index);
  }
}

void kernel_members::link_gone(int index)
{
  if (index == bridge_index_)
    bridge_lost();
  else if (members_.contains(index))
    member_leave(index);
}

void kernel_members::bridge_lost()
{
  tell(settings_.name, "the bridge is gone; it is served again when it is back");
  bridge_index_ = 0;
  while (!members_.empty())
    member_leave(members_.begin()->first);
}

void kernel_members::member_leave(int index)
{
  programs_.member_detach(index);
  members_.erase(index);
  numbers_assign();
}

void kernel_members::numbers_assign()
{
  std::vector<std::string> names;
  for (const auto& [index, known] : members_)
    names.push_back(known.name);
  port_number_map numbers = port_numbers(settings_.kernel.value().numbers, names);
  by_number_.clear();
  for (auto& [index, one] : members_) {
    const member_role role{settings_.kernel.value().uplinks.contains(one.name), numbers[one.name]};
    if (role.number != 0)
      by_number_[role.number] = index;
    if (one.attached && one.role == role)
      continue;
    one.role = role;
    member_put(index, one);
    number_tell(one);
  }
}

void kernel_members::number_tell(member& one) const
{
  const bool had_told = std::exchange(one.told_of_number, one.role.number == 0);
  if (one.told_of_number && !had_told)
    tell(settings_.name, one.name +
                             " has no port number of its own, so its discovery is not served: give it one by --port " +
                             one.name + "=NUMBER");
}

void kernel_members::member_put(int index, member& one)
{
  const int error = programs_.member_attach(index, one.role);
  const bool had_told = std::exchange(one.told_of_error, error != 0 && error != ENODEV);
  if (one.told_of_error && !had_told)
    tell(settings_.name, "no programs at " + one.name + ": " + std::strerror(error));
  one.attached = error == 0;
}

// Whoever moved it to another bridge may have been quicker than netlink.
bool kernel_members::is_still_member(int index) const
{
  return std::ranges::any_of(
      links_all(), [&](const link_info& link) { return link.index == index && link.master == bridge_index_; });
}

void kernel_members::member_check(int index)
{
  const auto at = members_.find(index);
  if (at == members_.end())
    return;
  member& one = at->second;
  if (one.attached && programs_.member_attached(index, one.role.uplink))
    return;
  if (!is_still_member(index))
    return;
  // Back from another bridge so soon that its leaving was not heard of yet: nobody took anything off.
  const auto found = found_programs::at(index);
  const bool lost = one.attached && !(found && found->bridge() != settings_.name);
  member_put(index, one);
  if (lost && one.attached)
    tell(settings_.name, "the programs at " + one.name + " were taken off by somebody else, and are back");
}

// The next so many, and after the last the first.
void kernel_members::check(size_t most)
{
  for (size_t i = 0; i < std::min(most, members_.size()); ++i) {
    auto next = members_.upper_bound(checked_);
    if (next == members_.end())
      next = members_.begin();
    checked_ = next->first;
    member_check(checked_);
  }
}

void kernel_members::changes_lost()
{
  look_at_all();
  check(members_.size());
}

void kernel_members::filters_changed(int index)
{
  if (members_.contains(index))
    member_check(index);
  else
    others_(index);
}

}  // namespace kvbridged
