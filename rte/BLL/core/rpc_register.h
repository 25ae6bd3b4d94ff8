// Registering an ONC RPC service on the loopback interface, over UDP and TCP.
#pragma once

#include <rpc/rpc.h>

using rpcDispatch_t = void (*)(svc_req*, SVCXPRT*);

// Makes a transport on 127.0.0.1 for UDP and one for TCP, on ports that the system chooses, and enters both into the
// port mapper (RFC 1833), in place of what stood there and of the transports of an earlier call for the same program. A
// step that fails is told on standard error and ends that transport; the other one is still tried. To be called on the
// proxy's thread.
void rpcProxyRegisterSvc(rpcprog_t program, rpcvers_t version, rpcDispatch_t dispatch);
