// The kernel's part of a bridge served beside the kernel's own: programs at tc of the members and of the helper device.
//
//   a member's ingress   discovery frames go to the helper device instead of the bridge, marked with the member. What
//                        comes back from there, bearing that mark, goes on into the bridge
//   the helper's ingress the end: kvbridged's packet socket has the frame by now
//   the helper's egress  what kvbridged sends: into the bridge by the member of the mark, or out by it
//   an uplink's egress   no discovery frame leaves that came in by a member and does not bear the mark. So nothing
//                        slips out while a member's program is not yet, or no more, in place
//
// The filters at members are bound to the protocols that can lead to discovery, which looked_into() in tc_programs.cc
// knows, so that other traffic meets no program. A frame is judged as classify() in frame.cc judges it, the outer tag
// where the kernel or the hardware put it.
#include "platform/kvbridged/kernel/bpf/maps.h"

#include <linux/pkt_cls.h>

#include <bpf/bpf_endian.h>
#include <bpf/bpf_helpers.h>

#define TAGS_MOST 4
#define DISCOVERY 0x8863
#define PADI 0x09
#define LENGTH_MOST 1500
#define MEMBERS_MOST 2048  // a bridge has at most 1,023 ports; some that left may be remembered

// The next filter decides.
#define GO_ON TC_ACT_UNSPEC

// Set before loading.
const volatile __u16 stag_ethertype = 0x88a8;
const volatile __u32 open_when_down = 0;
const volatile __u64 padi_interval = 0;  // ns between PADI, 0 for no limit
const volatile __u64 padi_burst = 0;     // ns: the intervals of a full bucket

struct {
  __uint(type, BPF_MAP_TYPE_ARRAY);
  __uint(max_entries, 1);
  __type(key, __u32);
  __type(value, struct kvb_control);
} kvb_control SEC(".maps");

struct {
  __uint(type, BPF_MAP_TYPE_HASH);
  __uint(max_entries, MEMBERS_MOST);
  __type(key, __u32);
  __type(value, __u32);
} kvb_roles SEC(".maps");

struct {
  __uint(type, BPF_MAP_TYPE_HASH);
  __uint(max_entries, MEMBERS_MOST);
  __type(key, __u32);
  __type(value, struct kvb_counts);
} kvb_counts SEC(".maps");

enum kind { other, discovery, hidden };

static __always_inline int is_own_tag(__u16 type)
{
  return type == 0x8100 || type == 0x88a8 || type == stag_ethertype;
}

static __always_inline int is_tag(__u16 type)
{
  return is_own_tag(type) || type == 0x9100 || type == 0x9200 || type == 0x9300;
}

// By what the kernel found behind the tag that it took off, if any: lengths have a protocol below 0x600.
static __always_inline int is_plain(const struct __sk_buff* frame)
{
  const __u16 type = bpf_ntohs((__u16)frame->protocol);
  return type > LENGTH_MOST && type != DISCOVERY && !is_tag(type);
}

static __always_inline int is_snap(const struct __sk_buff* frame, __u32 at)
{
  __u8 header[6];
  if (bpf_skb_load_bytes(frame, at, header, sizeof header) != 0)
    return 0;
  return header[0] == 0xaa && header[1] == 0xaa && header[2] == 0x03 && header[3] == 0 && header[4] == 0 &&
         (header[5] == 0 || header[5] == 0xf8);
}

// `place` is where the EtherType is, for a discovery frame.
static __always_inline enum kind classify(const struct __sk_buff* frame, __u32* place)
{
  const int tag_taken_off = frame->vlan_present != 0;
  int own = 1;
  __u32 at = 12;
  for (int tags = 0; tags <= TAGS_MOST; ++tags, at += 4) {
    __be16 word;
    if (tags == TAGS_MOST && tag_taken_off)
      break;
    if (bpf_skb_load_bytes(frame, at, &word, sizeof word) != 0)
      break;
    if (bpf_ntohs(word) <= LENGTH_MOST && is_snap(frame, at + 2)) {
      at += 8;
      own = 0;
      if (bpf_skb_load_bytes(frame, at, &word, sizeof word) != 0)
        break;
    }
    const __u16 type = bpf_ntohs(word);
    *place = at;
    if (type == DISCOVERY)
      return own ? discovery : hidden;
    if (!is_tag(type))
      return other;
    own = own && is_own_tag(type);
  }
  return hidden;
}

static __always_inline struct kvb_control* control_of(void)
{
  const __u32 first = 0;
  return bpf_map_lookup_elem(&kvb_control, &first);
}

static __always_inline int road_is_open(const struct kvb_control* control, __u32 role, __u64 now)
{
  return control && control->road_open && now < control->alive_until && role >> KVB_PORT_SHIFT != 0;
}

static __always_inline void count(__u64* counter)
{
  __sync_fetch_and_add(counter, 1);
}

// Takes a place of the member's bucket, which runs empty by one each interval. 0 when it is full.
static __always_inline int padi_accept(struct kvb_counts* counts, __u64 now)
{
  int accepted = 0;
  bpf_spin_lock(&counts->lock);
  const __u64 due = counts->padi_due > now ? counts->padi_due : now;
  if (due + padi_interval - now <= padi_burst) {
    counts->padi_due = due + padi_interval;
    accepted = 1;
  }
  bpf_spin_unlock(&counts->lock);
  return accepted;
}

static __always_inline int is_padi(const struct __sk_buff* frame, __u32 place)
{
  __u8 code;
  return bpf_skb_load_bytes(frame, place + 3, &code, sizeof code) == 0 && code == PADI;
}

SEC("tc")
int kvb_member_in(struct __sk_buff* frame)
{
  __u32 place = 0;
  if (is_plain(frame))
    return GO_ON;
  const enum kind kind = classify(frame, &place);
  if (kind == other || frame->mark == frame->ifindex)
    return GO_ON;
  const __u32 member = frame->ifindex;
  const __u32* role = bpf_map_lookup_elem(&kvb_roles, &member);
  struct kvb_counts* counts = bpf_map_lookup_elem(&kvb_counts, &member);
  const struct kvb_control* control = control_of();
  if (!role || !counts || !control)
    return TC_ACT_SHOT;
  const __u64 now = bpf_ktime_get_ns();
  const int open = road_is_open(control, *role, now);
  if (!open && open_when_down)
    return count(&counts->passed), GO_ON;
  if (kind == hidden)
    return count(&counts->hidden), TC_ACT_SHOT;
  if (!open)
    return count(&counts->stopped), TC_ACT_SHOT;
  if (padi_interval && !(*role & kvb_uplink) && is_padi(frame, place) && !padi_accept(counts, now))
    return count(&counts->refused_by_rate), TC_ACT_SHOT;
  count(&counts->captured);
  frame->mark = member;
  return bpf_redirect(control->helper, BPF_F_INGRESS);
}

SEC("tc")
int kvb_helper_in(struct __sk_buff* frame)
{
  return TC_ACT_SHOT;
}

SEC("tc")
int kvb_helper_out(struct __sk_buff* frame)
{
  const __u32 member = frame->mark & ~KVB_MARK_LEAVES;
  struct kvb_counts* counts = bpf_map_lookup_elem(&kvb_counts, &member);
  if (!counts || !bpf_map_lookup_elem(&kvb_roles, &member))
    return TC_ACT_SHOT;
  count(&counts->given_back);
  if (!(frame->mark & KVB_MARK_LEAVES))
    return bpf_redirect(member, BPF_F_INGRESS);
  frame->mark = 0;
  return bpf_redirect(member, 0);
}

// What this machine sends itself came in nowhere; it is not a line's.
SEC("tc")
int kvb_uplink_out(struct __sk_buff* frame)
{
  __u32 place = 0;
  if (is_plain(frame) || frame->ingress_ifindex == 0 || classify(frame, &place) == other)
    return GO_ON;
  if (frame->mark == frame->ingress_ifindex) {
    frame->mark = 0;
    return GO_ON;
  }
  const __u32 member = frame->ifindex;
  const __u32* role = bpf_map_lookup_elem(&kvb_roles, &member);
  struct kvb_counts* counts = bpf_map_lookup_elem(&kvb_counts, &member);
  if (open_when_down && !road_is_open(control_of(), role ? *role : 0, bpf_ktime_get_ns()))
    return GO_ON;
  if (counts)
    count(&counts->untreated);
  return TC_ACT_SHOT;
}
