// Arguments of the operators' procedure as they come from the network, decoded and, where they are arguments, handled
// by a manager: nothing but the documented exceptions may come out.
#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/rpc_bll_service.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
  std::vector<char> bytes(reinterpret_cast<const char*>(data), reinterpret_cast<const char*>(data) + size);
  XDR xdrs;
  xdrmem_create(&xdrs, bytes.data(), static_cast<u_int>(bytes.size()), XDR_DECODE);
  bllRpcMessage_t arguments;
  if (xdrBllRpcMessage(&xdrs, &arguments))
    handle(arguments);
  xdrs.x_op = XDR_FREE;
  if (!xdrBllRpcMessage(&xdrs, &arguments))
    std::abort();
  return 0;
}
