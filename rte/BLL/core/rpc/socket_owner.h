// Whose socket it is at the other end of a conversation on the loopback interface. Not installed.
#pragma once

#include "rte/BLL/core/rpc/call.h"
#include <optional>
#include <sys/types.h>

// The user who has made the caller's socket, as the kernel tells (NETLINK_SOCK_DIAG). Nothing if that cannot be told:
// the caller is not on the loopback interface or has closed the socket, sockets of several users share a UDP caller's
// port, or the kernel does not answer. Opens a descriptor for the time of the call; waits for the kernel a second at
// most.
std::optional<uid_t> socketOwner(const rpcPeer_t& peer);
