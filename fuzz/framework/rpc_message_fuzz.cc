// An operator's call as it comes from the network, header and all, and its arguments alone: decoded and, where they are
// arguments, handled by a manager. Nothing but the documented exceptions may come out.
#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/rpc/server.h"
#include "rte/BLL/core/rpc_bll_service.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

// A manager without a board. Its commands speak on standard output, which nobody wants a million times.
BLLManager& quietManager()
{
  static BLLManager& manager = *[] {
    setenv("BLL_BOARD_ID", "/nonexistent", 1);
    setenv("BLL_CONFIG", "/nonexistent", 1);
    if (!std::freopen("/dev/null", "w", stdout))
      std::abort();
    return new BLLManager;
  }();
  return manager;
}

void handle(const bllRpcMessage_t& arguments)
{
  const std::string message = arguments.message;
  if (message == "reportBacktraces" || message == "setfeature")
    return;  // starts a process; grows by design
  std::ostringstream reply;
  try {
    quietManager().onExternalMessage(message, arguments.value, reply);
  } catch (const std::invalid_argument&) {
  } catch (const std::out_of_range&) {
  }
}

void handleArguments(std::vector<char> bytes)
{
  XDR xdrs;
  xdrmem_create(&xdrs, bytes.data(), static_cast<u_int>(bytes.size()), XDR_DECODE);
  bllRpcMessage_t arguments;
  if (xdrBllRpcMessage(&xdrs, &arguments))
    handle(arguments);
  xdrs.x_op = XDR_FREE;
  if (!xdrBllRpcMessage(&xdrs, &arguments))
    std::abort();
}

void dispatch(svc_req*, SVCXPRT* transport)
{
  const auto routine = reinterpret_cast<xdrproc_t>(reinterpret_cast<void*>(xdrBllRpcMessage));
  bllRpcMessage_t arguments;
  if (svc_getargs(transport, routine, &arguments)) {
    handle(arguments);
    enum_t result = 0;
    svc_sendreply(transport, reinterpret_cast<xdrproc_t>(xdr_enum), &result);
  } else {
    svcerr_decode(transport);
  }
  svc_freeargs(transport, routine, &arguments);
}

constexpr rpcService_t service{bllRpcProgram, bllRpcVersion, dispatch};

std::optional<caller> admitAll(const rpcPeer_t&, const svc_req&)
{
  return caller{0, 0, {}};
}

// The bytes as they come from a client over TCP, which then is gone.
void handleStream(const std::vector<char>& bytes)
{
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends) < 0)
    std::abort();
  rpcConnection_t connection(ends[0], service, {}, {});
  (void)!write(ends[1], bytes.data(), bytes.size());
  shutdown(ends[1], SHUT_WR);
  for (char drained[4096]; connection.tend(admitAll);)
    while (read(ends[1], drained, sizeof drained) > 0)
      ;
  close(ends[1]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
  const auto* const begin = reinterpret_cast<const char*>(data);
  std::vector<char> bytes(begin, begin + size);
  handleArguments(bytes);
  handleStream(bytes);
  const rpcPeer_t peer{-1, IPPROTO_UDP, {}, {}};
  rpcAnswer(service, bytes, peer, admitAll, 1000);
  return 0;
}
