// One ONC RPC call (RFC 5531), from the bytes of its message to those of its reply.
//
// The RPC library's transports stand in tables of the whole process that two threads cannot serve from, and they decode
// a datagram beyond its end, into what an earlier one has left in the buffer. So the proxies receive by themselves. A
// program does not notice: for the time of the call its dispatch routine has a transport on which svc_getargs(),
// svc_freeargs(), svc_sendreply() and svcerr_...() work as on the library's own.
#ifndef RTE_BLL_CORE_RPC_CALL_H
#define RTE_BLL_CORE_RPC_CALL_H

#include "base/caller.h"
#include "rte/BLL/core/rpc_register.h"
#include <functional>
#include <netinet/in.h>
#include <optional>
#include <span>
#include <string>

struct rpcService_t {
  rpcprog_t program;
  rpcvers_t version;
  rpcDispatch_t dispatch;
};

// Between whom a message goes.
struct rpcPeer_t {
  int fd;        // of the service's socket
  int protocol;  // IPPROTO_UDP or IPPROTO_TCP
  sockaddr_in own;
  sockaddr_in caller;
};

// Who calls, or nothing if this caller may not.
using rpcAdmit_t = std::function<std::optional<caller>(const rpcPeer_t&, const svc_req&)>;

// The reply, of `largestReply` bytes at most; empty where none is due. The null procedure is open to all. Any other one
// is dispatched in the caller's name (base/caller.h) if `admit` lets the caller in, and else rejected with
// AUTH_TOOWEAK. A message that ends within its header is answered GARBAGE_ARGS, provided that it says it is a call.
// What the dispatch routine throws leaves here.
std::string rpcAnswer(const rpcService_t& service, std::span<char> message, const rpcPeer_t& peer,
                      const rpcAdmit_t& admit, size_t largestReply);

#endif
