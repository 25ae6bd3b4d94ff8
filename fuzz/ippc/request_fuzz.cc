// Any packet to the server: decoded, dispatched to a callback that writes all it may, and answered.
#include "platform/ippc/dispatch.h"

#include <cstdlib>
#include <cstring>

namespace {

// Plays the greediest operation: writes each buffer to the end of its slack, after a look at what must be zero.
int32_t scribble(ippcFuncData* request)
{
  if (!ippcFuncDataIsValid(request))
    return -2;
  for (unsigned i = 0; i < request->argCount; ++i) {
    const ippcArg& argument = *request->args[i];
    auto* bytes = static_cast<unsigned char*>(argument.data);
    if (reinterpret_cast<uintptr_t>(bytes) % 8 != 0)
      std::abort();
    for (size_t at = 0; at < IPPC_ARG_SLACK; ++at)
      if (bytes[argument.length + at] != 0)
        std::abort();
    std::memset(bytes, 0xa5, argument.length + IPPC_ARG_SLACK);
  }
  const int32_t result = request->functionId;
  return ippcFuncDataAddRetVal(request, &result, sizeof result);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
  static ippc::dispatch& dispatch = *new ippc::dispatch(scribble);
  const auto& packet = dispatch.run({data, size});
  const auto reply = ippc::reply_decode(packet);
  // Every reply is one, of at most the largest packet, and brings the arguments back only where there were any.
  if (!reply || packet.size() > ippc::packet_max || (reply->status != 0 && !reply->arguments.empty()))
    std::abort();
  return 0;
}
