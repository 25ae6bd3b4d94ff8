// The one function that the procedure-call library calls for every management request.
#ifndef PPPOEIA_OPERATIONS_DISPATCHER_H
#define PPPOEIA_OPERATIONS_DISPATCHER_H

#include "platform/ippc/ippc.h"

extern "C" {

// Runs the operation that the request names and adds its result. 0; -1: no such function id, another number of
// arguments than the operation has (it is not called), or the result cannot be added, or the process is ending;
// -2: the library says that the request is malformed. Reentrant; takes no lock.
int32_t pppoeia_ippc_dispatcher(ippcFuncData* request);

}  // extern "C"

// Waits for operations in progress and lets no other begin: the process's orderly end must not delete what a request
// still uses. There is no way back.
void pppoeia_requests_end();

#endif
