#include "platform/kvbridged/kernel/tc_programs.h"

#include "platform/kvbridged/frame.h"
#include "platform/kvbridged/kernel/found_programs.h"
#include "platform/kvbridged/kernel/tc_slot.h"

#include <algorithm>
#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <cerrno>
#include <cstring>
#include <discovery_bpf.skel.h>
#include <linux/if_ether.h>

namespace kvbridged {
namespace {

constexpr uint64_t second_ns = 1'000'000'000;
const std::vector<uint16_t> any_protocol{ETH_P_ALL};  // at the helper device, which has no other traffic

[[noreturn]] void give_up(const std::string& bridge, const char* what)
{
  throw fatal(std::string("this kernel takes no eBPF programs (") + what + ": " + std::strerror(errno) +
              "), so that '" + bridge + "' cannot be served beside it; --bridge serves one without");
}

void constants_set(discovery_bpf& opened, const bridge_settings& settings)
{
  const kernel_settings& kernel = settings.kernel.value();
  opened.rodata->stag_ethertype = settings.stag_ethertype;
  opened.rodata->open_when_down = kernel.mode == when_down::open;
  if (kernel.rate.per_second == 0)
    return;
  opened.rodata->padi_interval = second_ns / kernel.rate.per_second;
  opened.rodata->padi_burst = opened.rodata->padi_interval * kernel.rate.burst;
}

// What a former kvbridged left at any of the interfaces.
std::optional<found_programs> left_behind(const std::string& bridge, std::span<const int> interfaces)
{
  for (const int interface : interfaces)
    if (auto found = found_programs::at(interface); found && found->bridge() == bridge)
      return found;
  return std::nullopt;
}

uint32_t id_of(const bpf_program* program)
{
  bpf_prog_info info{};
  uint32_t size = sizeof info;
  return bpf_obj_get_info_by_fd(bpf_program__fd(program), &info, &size) == 0 ? info.id : 0;
}

// The protocol of all frames that any program here looks into: what stands first behind the addresses, but for an 802.3
// frame's length, in whose place the kernel puts ETH_P_802_2.
std::vector<uint16_t> looked_into(uint16_t stag_ethertype)
{
  std::vector<uint16_t> protocols{discovery_ethertype, ETH_P_802_2};
  for (const uint16_t tag : tag_types(stag_ethertype))
    if (std::ranges::find(protocols, tag) == protocols.end())
      protocols.push_back(tag);
  return protocols;
}

// Whether it is in the place of each protocol.
bool is_at(int interface, tc_side side, const bpf_program* program, const std::vector<uint16_t>& protocols)
{
  const std::vector<tc_place> places = tc_places(interface, side);
  const uint32_t id = id_of(program);
  return std::ranges::all_of(protocols, [&](uint16_t protocol) {
    return std::ranges::any_of(
        places, [&](const tc_place& place) { return place.protocol == protocol && place.program == id; });
  });
}

}  // namespace

tc_programs::tc_programs(const bridge_settings& settings, std::span<const int> interfaces)
    : bridge_(settings.name), protocols_(looked_into(settings.stag_ethertype)), loaded_(nullptr, discovery_bpf__destroy)
{
  loaded_.reset(discovery_bpf__open());
  if (!loaded_)
    give_up(bridge_, "opening");
  constants_set(*loaded_, settings);
  const auto former = left_behind(bridge_, interfaces);
  if (former && (bpf_map__reuse_fd(loaded_->maps.kvb_roles, former->roles_map()) != 0 ||
                 bpf_map__reuse_fd(loaded_->maps.kvb_counts, former->counts_map()) != 0))
    give_up(bridge_, "taking over");
  if (discovery_bpf__load(loaded_.get()) != 0)
    give_up(bridge_, "loading");
}

tc_programs::~tc_programs() = default;

void tc_programs::beat(bool road_open)
{
  const uint32_t first = 0;
  kvb_control control{};
  control.alive_until = monotonic_ns() + heart_stops_ns;
  control.road_open = road_open;
  control.helper = helper_;
  bridge_.copy(control.bridge, sizeof control.bridge - 1);
  bpf_map_update_elem(bpf_map__fd(loaded_->maps.kvb_control), &first, &control, BPF_ANY);
}

int tc_programs::helper_attach(int interface)
{
  helper_ = static_cast<uint32_t>(interface);
  const int error = tc_qdisc_make(interface);
  if (error != 0 && error != EEXIST)
    return error;
  const int in = tc_attach(interface, tc_side::in, loaded_->progs.kvb_helper_in, any_protocol);
  return in != 0 ? in : tc_attach(interface, tc_side::out, loaded_->progs.kvb_helper_out, any_protocol);
}

bool tc_programs::helper_attached(int interface) const
{
  return is_at(interface, tc_side::in, loaded_->progs.kvb_helper_in, any_protocol) &&
         is_at(interface, tc_side::out, loaded_->progs.kvb_helper_out, any_protocol);
}

// Who is known as a member had the qdisc looked at before.
int tc_programs::qdisc_make(int interface, uint32_t& role) const
{
  uint32_t before = 0;
  const bool known = bpf_map_lookup_elem(bpf_map__fd(loaded_->maps.kvb_roles), &interface, &before) == 0;
  const int error = tc_qdisc_make(interface);
  if (error == EEXIST)
    role |= known ? before & kvb_qdisc_found : uint32_t{kvb_qdisc_found};
  return error == EEXIST ? 0 : error;
}

int tc_programs::member_attach(int interface, member_role role)
{
  uint32_t flags = (role.uplink ? uint32_t{kvb_uplink} : 0u) | uint32_t{role.number} << KVB_PORT_SHIFT;
  const kvb_counts none{};
  const int counts = bpf_map__fd(loaded_->maps.kvb_counts);
  const int error = qdisc_make(interface, flags);
  if (error != 0)
    return error;
  if (bpf_map_update_elem(counts, &interface, &none, BPF_NOEXIST) != 0 && errno != EEXIST)
    return errno;
  if (bpf_map_update_elem(bpf_map__fd(loaded_->maps.kvb_roles), &interface, &flags, BPF_ANY) != 0)
    return errno;
  if (!role.uplink)
    tc_detach(interface, tc_side::out);
  const int in = tc_attach(interface, tc_side::in, loaded_->progs.kvb_member_in, protocols_);
  if (in != 0 || !role.uplink)
    return in;
  return tc_attach(interface, tc_side::out, loaded_->progs.kvb_uplink_out, protocols_);
}

bool tc_programs::member_attached(int interface, bool uplink) const
{
  return is_at(interface, tc_side::in, loaded_->progs.kvb_member_in, protocols_) &&
         (!uplink || is_at(interface, tc_side::out, loaded_->progs.kvb_uplink_out, protocols_));
}

void tc_programs::member_detach(int interface)
{
  const uint32_t ours = id_of(loaded_->progs.kvb_member_in);
  const auto is_anothers = [&](const tc_place& place) { return place.program != ours; };
  if (std::ranges::any_of(tc_places(interface, tc_side::in), is_anothers))
    return forget(interface);
  former_detach(interface);
}

void tc_programs::former_detach(int interface)
{
  uint32_t role = 0;
  const bool known = bpf_map_lookup_elem(bpf_map__fd(loaded_->maps.kvb_roles), &interface, &role) == 0;
  programs_take_off(interface, known && !(role & kvb_qdisc_found));
  forget(interface);
}

void tc_programs::forget(int interface)
{
  bpf_map_delete_elem(bpf_map__fd(loaded_->maps.kvb_roles), &interface);
  bpf_map_delete_elem(bpf_map__fd(loaded_->maps.kvb_counts), &interface);
}

kvb_counts tc_programs::counts(int interface) const
{
  kvb_counts counts{};
  bpf_map_lookup_elem(bpf_map__fd(loaded_->maps.kvb_counts), &interface, &counts);
  return counts;
}

}  // namespace kvbridged
