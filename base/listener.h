// A server's socket in the file system.
#ifndef BASE_LISTENER_H
#define BASE_LISTENER_H

#include <string>

// A listening AF_UNIX socket of that type (SOCK_STREAM, SOCK_SEQPACKET) on `path`, mode 0660, of group `pppoeia` where
// there is such a group. Nothing waits on it; close-on-exec. Replaces a socket file that nobody serves. The descriptor,
// or -1 with errno set.
int listener_open(const std::string& path, int type);

#endif
