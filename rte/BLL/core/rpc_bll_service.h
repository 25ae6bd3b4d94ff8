// The manager's ONC RPC program: operators' messages. The same declarations serve its clients.
//
//   program 0x20000017, version 1, on 127.0.0.1 over UDP and TCP
//   procedure 0   nothing in, nothing out
//   procedure 1   in: three XDR strings, the message, its value and the terminal device for the reply (may be empty:
//                 standard output of the service); out: one XDR enum, 1 if the reply could not be delivered, else 0
//
// Strings of more than 64 KiB, each or over TCP together, or arguments that are none, are answered GARBAGE_ARGS; a
// message whose handling has thrown SYSTEM_ERR; any other procedure PROC_UNAVAIL (RFC 5531).
#ifndef RTE_BLL_CORE_RPC_BLL_SERVICE_H
#define RTE_BLL_CORE_RPC_BLL_SERVICE_H

#include <rpc/rpc.h>

inline constexpr rpcprog_t bllRpcProgram = 0x20000017;
inline constexpr rpcvers_t bllRpcVersion = 1;
inline constexpr rpcproc_t bllRpcSendMessage = 1;
inline constexpr u_int bllRpcLongestText = 64 * 1024;

struct bllRpcMessage_t {
  char* message = nullptr;
  char* value = nullptr;
  char* terminal = nullptr;
};

// XDR routine of the arguments (RFC 4506): encodes, decodes (the strings then belong to the XDR library) or frees.
bool_t xdrBllRpcMessage(XDR* xdrs, bllRpcMessage_t* arguments);

// Start function of the manager's proxy: registers the program. The argument is ignored; answers null.
void* rpcBllmanagerStart(void* ignored);

// The server's side of procedure 1: hands the message to the manager. The result is one variable of the process, good
// until the next call. std::logic_error for a null text; what a subscriber throws reaches the caller.
enum_t* rpc_send_message_to_bll_1_svc(char* message, char* value, char* terminal, svc_req* request);

// The dispatch routine of the program.
void bllRpcDispatch(svc_req* request, SVCXPRT* transport);

#endif
