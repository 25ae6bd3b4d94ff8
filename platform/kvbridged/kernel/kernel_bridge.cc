#include "platform/kvbridged/kernel/kernel_bridge.h"

#include "platform/kvbridged/kernel/found_programs.h"
#include "platform/kvbridged/kernel/port_numbers.h"
#include "platform/kvbridged/kernel/tc_slot.h"
#include "platform/kvbridged/record.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/timerfd.h>
#include <unistd.h>

namespace kvbridged {
namespace {

constexpr long tick_ns = 200'000'000;
constexpr unsigned ticks_per_check = 4;  // of what netlink should have told
static_assert(tick_ns * 3 < tc_programs::heart_stops_ns, "two beats may be late");

descriptor timer_make()
{
  descriptor timer(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
  const itimerspec period{{0, tick_ns}, {0, tick_ns}};
  if (timer.get() < 0 || timerfd_settime(timer.get(), 0, &period, nullptr) != 0)
    throw fatal(std::string("no timer: ") + std::strerror(errno));
  return timer;
}

std::vector<int> indexes_of(const std::vector<link_info>& links)
{
  std::vector<int> indexes;
  for (const link_info& link : links)
    indexes.push_back(link.index);
  return indexes;
}

}  // namespace

kernel_bridge::kernel_bridge(const bridge_settings& settings, loop& events) : agent_bridge(settings), events_(events)
{
  const std::vector<link_info> links = links_all();
  const auto is_this = [&](const link_info& link) { return link.is_bridge && link.name == settings_.name; };
  if (std::ranges::none_of(links, is_this))
    throw fatal("no such bridge of the kernel: '" + settings_.name + "'");
  helper_ = std::make_unique<helper_device>(helper_name(), settings_.stag_ethertype);
  programs_ = std::make_unique<tc_programs>(settings_, indexes_of(links));
  if (const int error = programs_->helper_attach(helper_->index()); error != 0)
    throw fatal("no programs at '" + helper_name() + "': " + std::strerror(error));
  beat();
  timer_ = timer_make();
  links_ = std::make_unique<link_watch>(events_,
                                        link_watch::listener{.seen = [this](const link_info& link) { link_seen(link); },
                                                             .gone = [this](int index) { link_gone(index); },
                                                             .filters = [this](int index) { filters_changed(index); },
                                                             .lost = [this] { look_at_all(); }});
  look_at_all();
  leftovers_take_off(links);
  events_.watch(timer_.get(), [this] { tick(); });
  helper_watch();
}

kernel_bridge::~kernel_bridge()
{
  events_.forget(timer_.get());
  helper_forget();
  if (filter_ != filter_state::none && kernel().mode == when_down::closed) {
    state_set(filter_state::stopped, -1);
    tell("discovery stays stopped, since an agent's filter is in force");
  } else {
    for (const auto& [index, known] : members_)
      programs_->member_detach(index);
  }
}

void kernel_bridge::tell(const std::string& text) const
{
  std::fprintf(stderr, "kvbridged: %s: %s\n", settings_.name.c_str(), text.c_str());
}

// --- The agent's side

void kernel_bridge::attach(int device)
{
  state_set(filter_state::attached, device);
}

void kernel_bridge::detach()
{
  state_set(filter_state::none, -1);
}

void kernel_bridge::stop()
{
  state_set(filter_state::stopped, -1);
}

void kernel_bridge::state_set(filter_state state, int device)
{
  filter_ = state;
  device_ = device;
  beat();
}

void kernel_bridge::beat()
{
  programs_->beat(filter_ == filter_state::attached);
}

void kernel_bridge::from_agent(frame_view record)
{
  const auto returned = record_parse(record);
  if (!returned)
    return;
  ++counts_.from_agent;
  const auto at = by_number_.find(returned->input_port);
  const uint32_t leaves = returned->output_device.empty() ? KVB_MARK_LEAVES : 0;
  if (at == by_number_.end() || !give_back(returned->frame, static_cast<uint32_t>(at->second) | leaves))
    ++counts_.dropped;
}

// --- The members' side

void kernel_bridge::read_captured()
{
  constexpr int at_once_most = 64;
  for (int i = 0; i < at_once_most; ++i) {
    const auto frame = helper_->read();
    if (!frame)
      return;
    take(static_cast<int>(frame->mark), *frame);
  }
}

void kernel_bridge::take(int index, const port_frame& frame)
{
  const auto at = members_.find(index);
  const bool known = at != members_.end() && at->second.role.number != 0 && !frame.bytes.empty();
  const frame_class found = known ? classify(frame.bytes, settings_.stag_ethertype) : frame_class{};
  if (!known || found.kind != frame_kind::discovery || device_ < 0) {
    ++counts_.dropped;
  } else if (frame.bytes.size() > record_frame_max(settings_.mtu)) {
    answer(index, frame, found.ethertype);
  } else {
    const frame_bytes record =
        record_make(frame.bytes, settings_.stag_ethertype, at->second.role.number, at->second.name, settings_.name);
    ++(write(device_, record.data(), record.size()) < 0 ? counts_.dropped : counts_.to_agent);
  }
}

// Says to a client what the agent would say, had it room for the frame.
void kernel_bridge::answer(int index, const port_frame& frame, size_t ethertype)
{
  const member& from = members_.at(index);
  const auto source = answer_address(from.name);
  const auto made = source && !from.role.uplink ? error_answer(frame.bytes, ethertype, *source) : std::nullopt;
  if (made && give_back(*made, static_cast<uint32_t>(index) | KVB_MARK_LEAVES)) {
    ++counts_.answered;
  } else {
    ++counts_.too_large;
    ++counts_.dropped;
  }
}

bool kernel_bridge::give_back(frame_view frame, uint32_t mark)
{
  return helper_->give_back(frame, mark) == 0;
}

// --- Members that come and go

void kernel_bridge::look_at_all()
{
  std::vector<link_info> links = links_all();
  // Uplinks first: once they are guarded, nothing that passes a subscriber's port without a program gets out.
  std::stable_partition(links.begin(), links.end(),
                        [&](const link_info& link) { return kernel().uplinks.contains(link.name); });
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
void kernel_bridge::leftovers_take_off(const std::vector<link_info>& links) const
{
  for (const link_info& link : links) {
    const auto found = members_.contains(link.index) ? std::nullopt : found_programs::at(link.index);
    if (found && found->bridge() == settings_.name)
      programs_->member_detach(link.index);
  }
}

void kernel_bridge::link_seen(const link_info& link)
{
  if (link.name.empty())
    return;  // a message about something else
  const bool is_this = link.is_bridge && link.name == settings_.name;
  if (is_this && std::exchange(bridge_index_, link.index) != link.index)
    return look_at_all();
  if (!is_this && link.index == bridge_index_)
    return bridge_lost();
  const bool belongs = bridge_index_ != 0 && link.master == bridge_index_;
  const auto at = members_.find(link.index);
  if (belongs && (at == members_.end() || at->second.name != link.name)) {
    members_[link.index].name = link.name;
    numbers_assign();
  } else if (!belongs && at != members_.end()) {
    member_leave(link.index);
  }
}

void kernel_bridge::link_gone(int index)
{
  if (index == bridge_index_)
    bridge_lost();
  else if (members_.contains(index))
    member_leave(index);
}

void kernel_bridge::bridge_lost()
{
  tell("the bridge is gone; it is served again when it is back");
  bridge_index_ = 0;
  while (!members_.empty())
    member_leave(members_.begin()->first);
}

void kernel_bridge::member_leave(int index)
{
  programs_->member_detach(index);
  members_.erase(index);
  numbers_assign();
}

void kernel_bridge::numbers_assign()
{
  std::vector<std::string> names;
  for (const auto& [index, known] : members_)
    names.push_back(known.name);
  port_number_map numbers = port_numbers(kernel().numbers, names);
  by_number_.clear();
  for (auto& [index, one] : members_) {
    const member_role role{kernel().uplinks.contains(one.name), numbers[one.name]};
    if (role.number != 0)
      by_number_[role.number] = index;
    if (one.attached && one.role == role)
      continue;
    one.role = role;
    member_put(index, one);
    number_tell(one);
  }
}

void kernel_bridge::number_tell(member& one) const
{
  const bool had_told = std::exchange(one.told_of_number, one.role.number == 0);
  if (one.told_of_number && !had_told)
    tell(one.name + " has no port number of its own, so its discovery is not served: give it one by --port " +
         one.name + "=NUMBER");
}

void kernel_bridge::member_put(int index, member& one)
{
  const int error = programs_->member_attach(index, one.role);
  const bool had_told = std::exchange(one.told_of_error, error != 0 && error != ENODEV);
  if (one.told_of_error && !had_told)
    tell("no programs at " + one.name + ": " + std::strerror(error));
  one.attached = error == 0;
}

// --- What others do to the programs

void kernel_bridge::filters_changed(int index)
{
  if (index == helper_->index())
    helper_check();
  else
    member_check(index);
}

void kernel_bridge::member_check(int index)
{
  const auto at = members_.find(index);
  if (at == members_.end())
    return;
  member& one = at->second;
  if (one.attached && programs_->member_attached(index, one.role.uplink))
    return;
  const bool lost = one.attached;
  member_put(index, one);
  if (lost && one.attached)
    tell("the programs at " + one.name + " were taken off by somebody else, and are back");
}

void kernel_bridge::helper_check()
{
  if (programs_->helper_attached(helper_->index()))
    return;
  const int error = programs_->helper_attach(helper_->index());
  if (error == 0)
    tell("the programs at " + helper_name() + " were taken off by somebody else, and are back");
}

void kernel_bridge::helper_watch()
{
  events_.watch(helper_->socket(), [this] { read_captured(); });
  events_.watch(
      helper_->device(), [this] { helper_->drain(); }, [this] { helper_lost(); });
}

void kernel_bridge::helper_forget()
{
  events_.forget(helper_->socket());
  events_.forget(helper_->device());
}

void kernel_bridge::helper_lost()
{
  helper_forget();
  helper_ = std::make_unique<helper_device>(helper_name(), settings_.stag_ethertype);
  if (const int error = programs_->helper_attach(helper_->index()); error != 0)
    throw fatal("no programs at '" + helper_name() + "': " + std::strerror(error));
  helper_watch();
  beat();
  tell("the device " + helper_name() + " was deleted by somebody else, and is back");
}

void kernel_bridge::tick()
{
  uint64_t expirations;
  if (read(timer_.get(), &expirations, sizeof expirations) < 0)
    return;
  beat();
  if (++ticks_ % ticks_per_check != 0)
    return;
  helper_check();
  for (const auto& [index, known] : members_)
    member_check(index);
}

std::string kernel_bridge::statistics() const
{
  kvb_counts all{};
  for (const auto& [index, known] : members_) {
    const kvb_counts one = programs_->counts(index);
    all.captured += one.captured;
    all.given_back += one.given_back;
    all.refused_by_rate += one.refused_by_rate;
    all.stopped += one.stopped;
    all.passed += one.passed;
    all.hidden += one.hidden;
    all.untreated += one.untreated;
  }
  std::string line = settings_.name + (filter_ == filter_state::attached ? ": road open" : ": road down");
  const std::pair<const char*, unsigned long long> counts[] = {
      {"to agent", counts_.to_agent},
      {"from agent", counts_.from_agent},
      {"captured", all.captured},
      {"given back", all.given_back},
      {"dropped", counts_.dropped},
      {"answered", counts_.answered},
      {"too large", counts_.too_large},
      {"hidden", all.hidden},
      {"refused by rate", all.refused_by_rate},
      {"stopped", all.stopped},
      {"passed", all.passed},
      {"untreated", all.untreated},
      {"lost", helper_->lost()},
  };
  for (const auto& [name, count] : counts)
    line += std::string(", ") + name + " " + std::to_string(count);
  return line;
}

}  // namespace kvbridged
