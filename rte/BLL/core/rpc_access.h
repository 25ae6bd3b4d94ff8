// Who may call the programs that the proxies serve. Not installed.
#pragma once

#include "rte/BLL/core/rpc_call.h"
#include <string>

// Lets a user in, or the members of a group; both if a user and a group have this name. False if the user database
// knows neither.
bool rpcAllow(const std::string& userOrGroup);

// Lets in the owner of the calling socket: root, the service's own user, and who has been allowed. Anybody else, and
// who cannot be told, is logged, once a minute. Any thread.
std::optional<caller> rpcAdmit(const rpcPeer_t& peer, const svc_req& request);
