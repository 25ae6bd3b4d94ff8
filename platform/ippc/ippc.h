// The node's local procedure-call library as the agent sees it: a server on a UNIX socket that calls one function of
// the program for every request, and carries the request's argument buffers, as the function left them, back to the
// caller together with a return value. A node with the vendor's library links that instead (CMake option
// PPPOEIA_IPPC_LIBRARY); docs/ippc.md describes the wire of this one.
#ifndef PLATFORM_IPPC_IPPC_H
#define PLATFORM_IPPC_IPPC_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// One argument of a request. `data` is 8-byte aligned and belongs to the library; at least IPPC_ARG_SLACK bytes
// beyond `length` may be written too. Everything beyond what the caller sent is zero when the request is dispatched.
typedef struct ippcArg {
  uint32_t length;  // bytes the caller sent, 0 .. IPPC_ARG_MAX; as many travel back
  void* data;
} ippcArg;

enum {
  IPPC_ARG_MAX = 4096,   // bytes in one argument
  IPPC_ARG_SLACK = 512,  // writable, zeroed bytes behind each argument
};

// One request, valid only during the callback, on the library's server thread.
typedef struct ippcFuncData {
  uint16_t functionId;
  uint8_t argCount;
  uint8_t valid;         // 0 when the packet was malformed; read through ippcFuncDataIsValid()
  ippcArg* const* args;  // argCount references to argument records
  uint8_t hasReturn;     // set by ippcFuncDataAddRetVal()
  int32_t returnValue;   // host order; meaningful when hasReturn is 1
} ippcFuncData;

// Called once for every request, one request at a time. The result is the dispatcher's status in the reply.
typedef int32_t (*ippcCallback)(ippcFuncData* request);

typedef struct ippcServer {
  const char* path;  // of the socket; replaced when stale, never when a living server answers on it
  ippcCallback callback;
  uint64_t reserved;  // zero
} ippcServer;

// Prepares the library. 0, or non-zero on failure. Call once, before kvStartIppcServer().
int kvInitIppc(void);

// Starts serving in the background and returns at once: 0, or non-zero when the socket cannot be had (errno says
// why). The library blocks SIGINT and SIGTERM in its own thread. The description is copied, its path included.
int kvStartIppcServer(const ippcServer* server);

// Non-zero for a well-formed request, 0 for one whose packet was malformed.
int ippcFuncDataIsValid(const ippcFuncData* request);

// Stores the operation's result in the reply. `size` must be 4 and `data` point to a 32-bit integer in host order.
// 0, or non-zero when the size is another or a value was already added.
int ippcFuncDataAddRetVal(ippcFuncData* request, const void* data, uint32_t size);

#ifdef __cplusplus
}
#endif

#endif
