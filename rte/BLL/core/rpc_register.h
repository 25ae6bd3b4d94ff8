// Registering an ONC RPC service on the loopback interface, over UDP and TCP.
#ifndef RTE_BLL_CORE_RPC_REGISTER_H
#define RTE_BLL_CORE_RPC_REGISTER_H

#include <rpc/rpc.h>

using rpcDispatch_t = void (*)(svc_req*, SVCXPRT*);

// Makes a socket on 127.0.0.1 for UDP and one for TCP, on ports that the system chooses, and enters both into the port
// mapper (RFC 1833), in place of what stood there and of the sockets of an earlier call for the same program. A step
// that fails is told on standard error and ends that socket; the other one is still tried.
//
// To be called by the start function of a proxy, or later on its thread. A proxy that serves does so from then on, and
// calls `dispatch` for root, the process's own user and those that the host allows; for anybody else only procedure 0.
// Elsewhere the program becomes one of the RPC library's own table: whoever runs a loop over that serves it, and has to
// find out for itself who calls.
void rpcProxyRegisterSvc(rpcprog_t program, rpcvers_t version, rpcDispatch_t dispatch);

#endif
