// The ends of PPPoE session 1 on a host's interface: IPv4 leaves in session frames and comes out of them, one frame a
// segment, as with the kernel's PPPoE, which not every kernel has.
#include <linux/bpf.h>
#include <linux/pkt_cls.h>

#include <bpf/bpf_endian.h>
#include <bpf/bpf_helpers.h>

#define ETHERNET 14
#define TYPE 12  // offset of the EtherType

char _license[] SEC("license") = "GPL";

struct session_header {
  __u8 version_type;
  __u8 code;
  __be16 session;
  __be16 length;
  __be16 protocol;  // PPP's
};

SEC("tc")
int session_out(struct __sk_buff* frame)
{
  const __be16 type = bpf_htons(0x8864);
  const __u16 length = (__u16)(frame->len - ETHERNET + sizeof(__be16));
  const struct session_header header = {0x11, 0, bpf_htons(1), bpf_htons(length), bpf_htons(0x0021)};
  if (frame->protocol != bpf_htons(0x0800))
    return TC_ACT_OK;
  if (bpf_skb_adjust_room(frame, sizeof header, BPF_ADJ_ROOM_MAC, 0) != 0 ||
      bpf_skb_store_bytes(frame, TYPE, &type, sizeof type, 0) != 0 ||
      bpf_skb_store_bytes(frame, ETHERNET, &header, sizeof header, 0) != 0)
    return TC_ACT_SHOT;
  return TC_ACT_OK;
}

SEC("xdp")
int session_in(struct xdp_md* frame)
{
  __u8* bytes = (__u8*)(long)frame->data;
  if (bytes + ETHERNET + sizeof(struct session_header) > (__u8*)(long)frame->data_end || bytes[TYPE] != 0x88 ||
      bytes[TYPE + 1] != 0x64)
    return XDP_PASS;
  __u8 addresses[TYPE];
  __builtin_memcpy(addresses, bytes, sizeof addresses);
  if (bpf_xdp_adjust_head(frame, sizeof(struct session_header)) != 0)
    return XDP_DROP;
  bytes = (__u8*)(long)frame->data;
  if (bytes + ETHERNET > (__u8*)(long)frame->data_end)
    return XDP_DROP;
  __builtin_memcpy(bytes, addresses, sizeof addresses);
  bytes[TYPE] = 0x08;
  bytes[TYPE + 1] = 0x00;
  return XDP_PASS;
}
