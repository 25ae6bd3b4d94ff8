// The server's socket in the file system.
#ifndef PLATFORM_IPPC_LISTENER_H
#define PLATFORM_IPPC_LISTENER_H

#include <string>

namespace ippc {

// A listening AF_UNIX SOCK_SEQPACKET socket on `path`, mode 0660, of group `pppoeia` where there is such a group.
// Replaces a socket file that nobody serves. The descriptor, or -1 with errno set.
int listener_open(const std::string& path);

}  // namespace ippc

#endif
