#include "platform/kvbridged/kernel/kernel_bridge.h"

#include "platform/kvbridged/kernel/found_programs.h"
#include "platform/kvbridged/record.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/timerfd.h>
#include <unistd.h>

namespace kvbridged {
namespace {

constexpr long tick_ns = 200'000'000;
constexpr size_t checks_per_tick = 32;  // of what netlink should have told
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
  members_ = std::make_unique<kernel_members>(settings_, *programs_, events_, [this](int index) {
    if (index == helper_->index())
      helper_check();
  });
  events_.watch(timer_.get(), [this] { tick(); });
  helper_watch();
}

kernel_bridge::~kernel_bridge()
{
  events_.forget(timer_.get());
  helper_forget();
  if (filter_ != filter_state::none && kernel().mode == when_down::closed) {
    state_set(filter_state::stopped, -1);
    tell(settings_.name, "discovery stays stopped, since an agent's filter is in force");
  } else {
    members_->detach_all();
  }
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
  last_beat_ = monotonic_ns();
  programs_->beat(filter_ == filter_state::attached);
}

// While frames come without end the timer may have to wait for its turn.
void kernel_bridge::beat_if_due()
{
  if (monotonic_ns() - last_beat_ >= tick_ns)
    beat();
}

void kernel_bridge::from_agent(frame_view record)
{
  beat_if_due();
  const auto returned = record_parse(record);
  if (!returned)
    return;
  ++counts_.from_agent;
  const auto member = static_cast<uint32_t>(members_->index_of(returned->input_port));
  const uint32_t leaves = returned->output_device.empty() ? KVB_MARK_LEAVES : 0;
  if (member == 0 || !give_back(returned->frame, member | leaves))
    ++counts_.dropped;
}

// --- The members' side

void kernel_bridge::read_captured()
{
  constexpr int at_once_most = 64;
  beat_if_due();
  for (int i = 0; i < at_once_most; ++i) {
    const auto frame = helper_->read();
    if (!frame)
      return;
    take(static_cast<int>(frame->mark), *frame);
  }
}

void kernel_bridge::take(int index, const port_frame& frame)
{
  const kernel_members::member* from = members_->find(index);
  const bool known = from && from->role.number != 0 && !frame.bytes.empty();
  const frame_class found = known ? classify(frame.bytes, settings_.stag_ethertype) : frame_class{};
  if (!known || found.kind != frame_kind::discovery || device_ < 0) {
    ++counts_.dropped;
  } else if (frame.bytes.size() > record_frame_max(settings_.mtu)) {
    answer(index, *from, frame.bytes, found.ethertype);
  } else {
    const frame_bytes record =
        record_make(frame.bytes, settings_.stag_ethertype, from->role.number, from->name, settings_.name);
    ++(write(device_, record.data(), record.size()) < 0 ? counts_.dropped : counts_.to_agent);
  }
}

// Says to a client what the agent would say, had it room for the frame.
void kernel_bridge::answer(int index, const kernel_members::member& from, frame_view frame, size_t ethertype)
{
  const auto source = answer_address(from.name);
  const auto made = source && !from.role.uplink ? error_answer(frame, ethertype, *source) : std::nullopt;
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

// --- The helper device

void kernel_bridge::helper_check()
{
  if (programs_->helper_attached(helper_->index()))
    return;
  const int error = programs_->helper_attach(helper_->index());
  if (error == 0)
    tell(settings_.name, "the programs at " + helper_name() + " were taken off by somebody else, and are back");
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
  tell(settings_.name, "the device " + helper_name() + " was deleted by somebody else, and is back");
}

void kernel_bridge::tick()
{
  uint64_t expirations;
  if (read(timer_.get(), &expirations, sizeof expirations) < 0)
    return;
  beat();
  helper_check();
  members_->check(checks_per_tick);
}

std::string kernel_bridge::statistics() const
{
  const kvb_counts all = members_->counts();
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
