// A caller's end: one connection, one call after the other, or many on their way at once.
#ifndef PLATFORM_IPPC_CLIENT_H
#define PLATFORM_IPPC_CLIENT_H

#include "base/descriptor.h"
#include "platform/ippc/wire.h"

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <sys/types.h>
#include <vector>

namespace ippc {

enum class call_error {
  none,
  no_server,  // nobody serves the path, or the server went away
  time_out,   // no reply in time; the connection is of no more use
  protocol,   // the reply is none, or none to this call
  busy,       // the server has no place for another connection; this one is of no more use
};

struct call_reply {
  call_error error = call_error::none;
  int32_t status = 0;  // the dispatcher's
  bool has_result = false;
  int32_t result = 0;  // the operation's
};

// One of many calls. `arguments` as those of client::call().
struct pending_call {
  uint16_t function_id = 0;
  std::vector<std::vector<unsigned char>> arguments;
  call_reply reply;
};

class client {
public:
  // False, with errno set, when nobody serves the path. Whether the server has a place shows at the first call.
  bool open(const std::string& path);

  // Calls a function. `arguments` are what is sent, and hold afterwards what came back, of the same sizes; unchanged
  // where the reply brought none.
  call_reply call(uint16_t function_id, std::vector<std::vector<unsigned char>>& arguments,
                  std::chrono::milliseconds time_out);

  // Calls functions in that order, `together` of them on their way at a time: their packets and replies must have room
  // in the socket. The first error of the connection is told, and is that of every call from there on; each reply has
  // the time.
  call_error call_all(std::span<pending_call> calls, size_t together, std::chrono::milliseconds time_out);

private:
  call_error requests_send(std::span<const pending_call> calls, std::chrono::milliseconds time_out);
  call_error request_send(std::chrono::milliseconds time_out);
  call_error reply_receive(std::chrono::milliseconds time_out);
  call_reply reply_take(uint16_t function_id, uint32_t sequence, std::vector<std::vector<unsigned char>>& arguments);
  void request_make(uint16_t function_id, const std::vector<std::vector<unsigned char>>& arguments);
  call_error exchange(std::chrono::milliseconds time_out);
  ssize_t receive_soon();

  descriptor fd_;
  uint32_t sequence_ = 0;
  std::vector<unsigned char> packet_;    // the request
  std::vector<unsigned char> received_;  // room for the largest packet, made once
  size_t reply_size_ = 0;                // of `received_`
};

}  // namespace ippc

#endif
