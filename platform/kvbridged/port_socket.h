// A port's packet sockets: one that sees discovery frames, one that sees all others.
//
// Frames keep what their sender left to the device: a checksum to be filled in, a large segment to be cut. Linux leaves
// both to do on frames of its own, and on those that it put together on receipt. It goes with the frame to the port
// that sends it, where the kernel does it.
#ifndef PLATFORM_KVBRIDGED_PORT_SOCKET_H
#define PLATFORM_KVBRIDGED_PORT_SOCKET_H

#include "base/descriptor.h"
#include "platform/kvbridged/frame.h"

#include <cstdint>
#include <linux/filter.h>
#include <optional>
#include <string>
#include <vector>

namespace kvbridged {

// The kernel's part in telling frames apart: discovery frames get a socket of their own, so that other traffic, however
// much of it, takes none of their room.
//
// Classic BPF. Discovery frames have EtherType 0x8863 behind at most four tags of any type, the bridge's own or not;
// others are all the rest. Every frame passes exactly one of the two, those that end inside their tags as others.
//
// This is no verdict: the kernel takes the outer tag off a frame before the filter sees it, so a frame may have one tag
// more. classify() judges the whole frame, whichever socket it came by.
std::vector<sock_filter> discovery_filter(port_frames which, uint16_t stag_ethertype);

// A raw packet socket on an interface, in promiscuous mode, blind for what leaves by it. Throws fatal.
descriptor port_socket_open(const std::string& interface, port_frames which, uint16_t stag_ethertype);

// What is still to be done on a frame: the kernel's virtio_net_hdr, whose header C++ cannot read. All zero for nothing.
struct offload {
  static constexpr uint8_t needs_checksum = 1;
  uint8_t flags;
  uint8_t segments;  // of which protocol, 0 for one frame
  uint16_t header_length;
  uint16_t segment_size;
  uint16_t checksum_start;  // from the frame's start
  uint16_t checksum_offset;
};
static_assert(sizeof(offload) == 10);

struct port_frame {
  frame_view bytes;
  offload left_to_do{};
  uint32_t mark = 0;  // the kernel's, where the socket has SO_RCVMARK
};

// Sends one frame by a port's socket, bearing its mark. 0 or an errno value: EMSGSIZE for one that is larger than the
// device takes.
int port_socket_send(int fd, const port_frame& frame);

// The hardware address of an interface; nothing without that interface.
std::optional<mac_address> interface_address(const std::string& interface);

// Whose address an answer to a subscriber's request bears: mng0's, or without mng0 that of the port's interface.
std::optional<mac_address> answer_address(const std::string& interface);

// Reads frames from ports' sockets, one at a time.
class port_reader {
public:
  port_reader() : buffer_(tag_size + largest) {}

  // The next frame, the outer VLAN tag that the kernel had taken off put back; it is valid until the next call. An
  // empty one stands for a frame that cannot be had whole. Nothing when there is none.
  std::optional<port_frame> read(int fd);

private:
  static constexpr size_t largest = 65536 + ethernet_header + tags_most * tag_size;

  void tag_put_back(port_frame& frame, uint16_t type, uint16_t control);

  frame_bytes buffer_;  // room for one tag, then the frame as the kernel gives it
};

}  // namespace kvbridged

#endif
