#include "platform/ippc/dispatch.h"

#include <algorithm>
#include <cstring>

namespace ippc {
namespace {

static_assert(argument_max == IPPC_ARG_MAX, "the wire carries what callbacks are promised");
constexpr size_t word = sizeof(uint64_t);

// Words of one argument's buffer: what the caller sent and the slack behind it.
size_t words_for(size_t length)
{
  return (length + IPPC_ARG_SLACK + word - 1) / word;
}

}  // namespace

void dispatch::copy_arguments()
{
  size_t words = 0;
  for (const const_bytes argument : request_.arguments)
    words += words_for(argument.size());
  if (arena_.size() < words)
    arena_.resize(words);
  std::fill_n(arena_.begin(), words, 0);

  uint64_t* next = arena_.data();
  for (size_t i = 0; i < request_.arguments.size(); ++i) {
    const const_bytes argument = request_.arguments[i];
    args_[i] = {static_cast<uint32_t>(argument.size()), next};
    arg_list_[i] = &args_[i];
    if (!argument.empty())
      std::memcpy(next, argument.data(), argument.size());
    next += words_for(argument.size());
  }
}

const std::vector<unsigned char>& dispatch::run(const_bytes packet)
{
  request_decode(packet, request_);
  copy_arguments();
  ippcFuncData call{request_.function_id,
                    static_cast<uint8_t>(request_.arguments.size()),
                    static_cast<uint8_t>(request_.well_formed),
                    arg_list_.data(),
                    0,
                    0};
  reply_.status = callback_(&call);
  if (!request_.well_formed)
    reply_.status = status_malformed;
  reply_.function_id = request_.function_id;
  reply_.sequence = request_.sequence;
  reply_.has_result = reply_.status == 0 && call.hasReturn;
  reply_.result = call.returnValue;
  reply_.arguments.clear();
  for (size_t i = 0; i < request_.arguments.size(); ++i)
    reply_.arguments.emplace_back(static_cast<const unsigned char*>(args_[i].data), request_.arguments[i].size());
  reply_encode(reply_, packet_);
  return packet_;
}

}  // namespace ippc

int ippcFuncDataIsValid(const ippcFuncData* request)
{
  return request->valid;
}

int ippcFuncDataAddRetVal(ippcFuncData* request, const void* data, uint32_t size)
{
  if (size != sizeof request->returnValue || request->hasReturn)
    return -1;
  std::memcpy(&request->returnValue, data, size);
  request->hasReturn = 1;
  return 0;
}
