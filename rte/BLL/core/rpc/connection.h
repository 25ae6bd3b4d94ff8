// A client of a program over TCP: records in, replies out (RFC 5531, record marking), and never a wait for the client.
// Not installed.
#pragma once

#include "rte/BLL/core/rpc/call.h"
#include <string>

class rpcConnection_t {
public:
  // The connection is closed when a record of more bytes than this is announced.
  static constexpr size_t largestRecord = 256 * 1024;

  // Takes the descriptor, which must not block, and closes it in the end.
  rpcConnection_t(int fd, const rpcService_t& service, const sockaddr_in& own, const sockaddr_in& caller);
  ~rpcConnection_t();
  rpcConnection_t(const rpcConnection_t&) = delete;
  rpcConnection_t& operator=(const rpcConnection_t&) = delete;

  // What to poll for. A client that does not read its replies is not listened to.
  short events() const;
  // Does what can be done without waiting. False when the connection has come to its end.
  bool tend(const rpcAdmit_t& admit);

private:
  bool receive();
  bool flush();
  bool takeRecord();

  rpcService_t service_;
  rpcPeer_t peer_;
  std::string received_;  // not yet taken: at most a read and an unfinished fragment
  std::string record_;    // the fragments taken so far
  std::string replies_;   // not yet sent
  bool ended_ = false;    // the client says no more
  bool tooLong_ = false;
};
