// Who may call the programs that the proxies serve.
#ifndef RTE_BLL_CORE_RPC_ACCESS_H
#define RTE_BLL_CORE_RPC_ACCESS_H

#include "rte/BLL/core/rpc/call.h"
#include <chrono>
#include <optional>
#include <string>

// Lets a user in, or the members of a group; both if a user and a group have this name. False if the user database
// knows neither.
bool rpcAllow(const std::string& userOrGroup);

// Lets in the owner of the calling socket: root, the service's own user, and who has been allowed. Anybody else, and
// who cannot be told, is logged, once a minute. Any thread.
std::optional<caller> rpcAdmit(const rpcPeer_t& peer, const svc_req& request);

// Which refusals are told: the first, and from then on one a minute. Not for several threads at once.
class rpcRefusals_t {
public:
  // Of a refusal at `now`, the number of those before it that nobody has been told of; nothing when it is to be one of
  // them itself.
  std::optional<unsigned> tell(std::chrono::steady_clock::time_point now);

private:
  std::chrono::steady_clock::time_point quietUntil_{};
  unsigned unsaid_ = 0;
};

#endif
