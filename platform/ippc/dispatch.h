// One request from packet to reply: decoding, the argument buffers, the callback, encoding. No socket in it.
#ifndef PLATFORM_IPPC_DISPATCH_H
#define PLATFORM_IPPC_DISPATCH_H

#include "platform/ippc/ippc.h"
#include "platform/ippc/wire.h"

#include <array>
#include <cstddef>
#include <vector>

namespace ippc {

// Keeps its memory from request to request. One thread at a time.
class dispatch {
public:
  explicit dispatch(ippcCallback callback) : callback_(callback) {}

  // Runs the callback for one packet and answers the reply packet, which stays valid until the next call.
  const std::vector<unsigned char>& run(const_bytes packet);

private:
  void copy_arguments();

  ippcCallback callback_;
  request request_;
  reply reply_;
  std::vector<unsigned char> packet_;
  std::vector<uint64_t> arena_;  // of 8-byte words, so that every buffer that begins at one is aligned
  std::array<ippcArg, arguments_max> args_{};
  std::array<ippcArg*, arguments_max> arg_list_{};
};

}  // namespace ippc

#endif
