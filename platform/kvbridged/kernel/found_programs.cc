#include "platform/kvbridged/kernel/found_programs.h"

#include "platform/kvbridged/kernel/tc_slot.h"

#include <algorithm>
#include <bpf/bpf.h>
#include <cstring>
#include <string_view>
#include <vector>

namespace kvbridged {
namespace {

constexpr uint32_t maps_most = 8;

// The ids of the maps of the program at a member's ingress, if it is one of kvbridged's.
std::vector<uint32_t> map_ids(int interface)
{
  const std::vector<tc_place> places = tc_places(interface, tc_side::in);
  const descriptor fd(places.empty() ? -1 : bpf_prog_get_fd_by_id(places.front().program));
  std::vector<uint32_t> ids(maps_most);
  bpf_prog_info info{};
  info.nr_map_ids = maps_most;
  info.map_ids = reinterpret_cast<uintptr_t>(ids.data());
  uint32_t size = sizeof info;
  if (fd.get() < 0 || bpf_obj_get_info_by_fd(fd.get(), &info, &size) != 0 ||
      std::string_view(info.name) != "kvb_member_in")
    return {};
  ids.resize(std::min(info.nr_map_ids, maps_most));
  return ids;
}

}  // namespace

std::optional<found_programs> found_programs::at(int interface)
{
  found_programs found;
  for (const uint32_t id : map_ids(interface)) {
    descriptor fd(bpf_map_get_fd_by_id(id));
    bpf_map_info info{};
    uint32_t size = sizeof info;
    if (fd.get() < 0 || bpf_obj_get_info_by_fd(fd.get(), &info, &size) != 0)
      continue;
    const auto is = [&](const char* name, size_t value) {
      return std::strcmp(info.name, name) == 0 && info.value_size == value;
    };
    if (is("kvb_control", sizeof(kvb_control)))
      found.control_ = std::move(fd);
    else if (is("kvb_roles", sizeof(uint32_t)))
      found.roles_ = std::move(fd);
    else if (is("kvb_counts", sizeof(kvb_counts)))
      found.counts_ = std::move(fd);
  }
  if (found.control_.get() < 0 || found.roles_.get() < 0 || found.counts_.get() < 0)
    return std::nullopt;
  return found;
}

kvb_control found_programs::control() const
{
  const uint32_t first = 0;
  kvb_control control{};
  bpf_map_lookup_elem(control_.get(), &first, &control);
  return control;
}

std::string found_programs::bridge() const
{
  const kvb_control said = control();
  return {said.bridge, strnlen(said.bridge, sizeof said.bridge)};
}

bool found_programs::road_open() const
{
  const kvb_control said = control();
  return said.road_open != 0 && monotonic_ns() < said.alive_until;
}

std::optional<uint32_t> found_programs::role(int interface) const
{
  uint32_t role = 0;
  return bpf_map_lookup_elem(roles_.get(), &interface, &role) == 0 ? std::optional(role) : std::nullopt;
}

kvb_counts found_programs::counts(int interface) const
{
  kvb_counts counts{};
  bpf_map_lookup_elem(counts_.get(), &interface, &counts);
  return counts;
}

}  // namespace kvbridged
