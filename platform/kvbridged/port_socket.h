// A port's packet sockets: one that sees discovery frames only, one that sees all others.
#ifndef PLATFORM_KVBRIDGED_PORT_SOCKET_H
#define PLATFORM_KVBRIDGED_PORT_SOCKET_H

#include "platform/kvbridged/descriptor.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kvbridged {

enum class port_frames { discovery, others };

// A raw packet socket on an interface, in promiscuous mode, blind for what leaves by it. Discovery frames are those of
// EtherType 0x8863 behind at most three VLAN tags (0x8100, 0x88a8 or the bridge's S-Tag). Throws fatal.
descriptor port_socket_open(const std::string& interface, port_frames which, uint16_t stag_ethertype);

// Reads one frame, the outer VLAN tag that the kernel had taken off put back. False when there is none.
bool port_socket_read(int fd, std::vector<unsigned char>& frame);

}  // namespace kvbridged

#endif
