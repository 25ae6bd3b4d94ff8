#include "platform/kvbridged/kernel/tc_slot.h"

#include "platform/kvbridged/kernel/netlink.h"

#include <algorithm>
#include <arpa/inet.h>
#include <bpf/libbpf.h>
#include <cstring>
#include <linux/pkt_cls.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>

namespace kvbridged {
namespace {

// What fails is told by whoever asked, if it matters.
[[maybe_unused]] const auto library_is_silent = libbpf_set_print(nullptr);

constexpr uint32_t handle = 0x8863;
constexpr char kind[] = "bpf";
constexpr char name_begin[] = "kvb_";

struct tc_filter {
  tc_place place;
  bool ours = false;
};

tcmsg address_of(int interface, tc_side side)
{
  tcmsg address{};
  address.tcm_ifindex = interface;
  address.tcm_parent = TC_H_MAKE(TC_H_CLSACT, side == tc_side::in ? TC_H_MIN_INGRESS : TC_H_MIN_EGRESS);
  return address;
}

tcmsg address_of(int interface, tc_side side, const tc_place& place)
{
  tcmsg address = address_of(interface, side);
  address.tcm_handle = handle;
  address.tcm_info = TC_H_MAKE(static_cast<uint32_t>(place.preference) << 16, htons(place.protocol));
  return address;
}

int options_read(const nlattr* attribute, void* to)
{
  tc_filter& filter = *static_cast<tc_filter*>(to);
  const int type = mnl_attr_get_type(attribute);
  if (type == TCA_BPF_ID)
    filter.place.program = mnl_attr_get_u32(attribute);
  else if (type == TCA_BPF_NAME)
    filter.ours = std::strncmp(mnl_attr_get_str(attribute), name_begin, std::strlen(name_begin)) == 0;
  return MNL_CB_OK;
}

int attribute_read(const nlattr* attribute, void* to)
{
  return mnl_attr_get_type(attribute) == TCA_OPTIONS ? mnl_attr_parse_nested(attribute, options_read, to) : MNL_CB_OK;
}

tc_filter filter_of(const nlmsghdr* message)
{
  const tcmsg& address = *static_cast<const tcmsg*>(mnl_nlmsg_get_payload(message));
  tc_filter filter;
  filter.place.preference = static_cast<uint16_t>(address.tcm_info >> 16);
  filter.place.protocol = ntohs(static_cast<uint16_t>(address.tcm_info));
  if (address.tcm_handle == handle)
    mnl_attr_parse(message, sizeof address, attribute_read, &filter);
  return filter;
}

// Anybody's, by preference.
std::vector<tc_filter> filters(int interface, tc_side side)
{
  std::vector<tc_filter> all;
  netlink_request request(RTM_GETTFILTER, NLM_F_DUMP, address_of(interface, side));
  request.send([&](const nlmsghdr* message) { all.push_back(filter_of(message)); });
  return all;
}

// Where the filter for the protocol is, or else where there is room for it.
tc_place place_for(uint16_t protocol, const std::vector<tc_filter>& there)
{
  const auto own = std::ranges::find_if(
      there, [&](const tc_filter& filter) { return filter.ours && filter.place.protocol == protocol; });
  if (own != there.end())
    return own->place;
  tc_place free{1, protocol};
  while (std::ranges::any_of(there, [&](const tc_filter& one) { return one.place.preference == free.preference; }))
    ++free.preference;
  return free;
}

int filter_put(int interface, tc_side side, const tc_place& place, const bpf_program* program)
{
  netlink_request request(RTM_NEWTFILTER, NLM_F_CREATE | NLM_F_ACK, address_of(interface, side, place));
  mnl_attr_put_strz(request.message(), TCA_KIND, kind);
  nlattr* options = mnl_attr_nest_start(request.message(), TCA_OPTIONS);
  mnl_attr_put_u32(request.message(), TCA_BPF_FD, static_cast<uint32_t>(bpf_program__fd(program)));
  mnl_attr_put_strz(request.message(), TCA_BPF_NAME, bpf_program__name(program));
  mnl_attr_put_u32(request.message(), TCA_BPF_FLAGS, TCA_BPF_FLAG_ACT_DIRECT);
  mnl_attr_nest_end(request.message(), options);
  return request.send();
}

void filter_take_off(int interface, tc_side side, const tc_place& place)
{
  netlink_request request(RTM_DELTFILTER, NLM_F_ACK, address_of(interface, side, place));
  mnl_attr_put_strz(request.message(), TCA_KIND, kind);
  request.send();
}

bpf_tc_hook both_sides_of(int interface)
{
  bpf_tc_hook hook{};
  hook.sz = sizeof hook;
  hook.ifindex = interface;
  hook.attach_point = static_cast<bpf_tc_attach_point>(BPF_TC_INGRESS | BPF_TC_EGRESS);
  return hook;
}

}  // namespace

int tc_qdisc_make(int interface)
{
  bpf_tc_hook hook = both_sides_of(interface);
  return -bpf_tc_hook_create(&hook);
}

void tc_qdisc_remove(int interface)
{
  bpf_tc_hook hook = both_sides_of(interface);
  if (filters(interface, tc_side::in).empty() && filters(interface, tc_side::out).empty())
    bpf_tc_hook_destroy(&hook);
}

int tc_attach(int interface, tc_side side, const bpf_program* program, const std::vector<uint16_t>& protocols)
{
  std::vector<tc_filter> there = filters(interface, side);
  for (const uint16_t protocol : protocols) {
    const tc_place place = place_for(protocol, there);
    if (const int error = filter_put(interface, side, place, program); error != 0)
      return error;
    there.push_back({place, false});
  }
  for (const tc_filter& filter : there)
    if (filter.ours && std::ranges::find(protocols, filter.place.protocol) == protocols.end())
      filter_take_off(interface, side, filter.place);
  return 0;
}

void tc_detach(int interface, tc_side side)
{
  for (const tc_place& place : tc_places(interface, side))
    filter_take_off(interface, side, place);
}

void programs_take_off(int interface, bool with_qdisc)
{
  tc_detach(interface, tc_side::in);
  tc_detach(interface, tc_side::out);
  if (with_qdisc)
    tc_qdisc_remove(interface);
}

std::vector<tc_place> tc_places(int interface, tc_side side)
{
  std::vector<tc_place> places;
  for (const tc_filter& filter : filters(interface, side))
    if (filter.ours)
      places.push_back(filter.place);
  return places;
}

}  // namespace kvbridged
