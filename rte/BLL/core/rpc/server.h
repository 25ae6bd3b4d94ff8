// What one proxy's thread serves: the sockets of its programs and the connections to them.
#ifndef RTE_BLL_CORE_RPC_SERVER_H
#define RTE_BLL_CORE_RPC_SERVER_H

#include "rte/BLL/core/rpc/call.h"
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <poll.h>
#include <string>
#include <vector>

// A client of a program over TCP: records in, replies out (RFC 5531, record marking), and never a wait for the client.
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

// Belongs to the thread that makes it, and is used by no other.
class rpcServer_t {
public:
  // Clients that connect and say nothing must not take every descriptor of the process: beyond so many connections
  // those that have been silent for longest are closed.
  static constexpr size_t mostConnections = 256;

  explicit rpcServer_t(rpcAdmit_t admit);
  ~rpcServer_t();  // closes all
  rpcServer_t(const rpcServer_t&) = delete;
  rpcServer_t& operator=(const rpcServer_t&) = delete;

  // The server that the calling thread has made; null if none.
  static rpcServer_t* ofThisThread();

  // Takes a bound socket, of TCP a listening one, to serve the program on.
  void add(const rpcService_t& service, int fd, int protocol);
  // Closes the sockets of a program. Connections stay until their clients end them.
  void remove(rpcprog_t program, rpcvers_t version);

  // Transports that this thread has made by the RPC library's own functions since it made the server will be served
  // too, unless another server serves such ones: the library keeps them all in one table without a lock.
  void adoptLibraryTransports();

  // Waits for input for a second at most, or until `wake` is readable, and serves each that is ready once. False, and
  // errno, if waiting has failed.
  bool serve(int wake);

private:
  struct socket_t {
    rpcService_t service;
    int protocol;
    sockaddr_in address;
  };
  struct client_t {
    std::unique_ptr<rpcConnection_t> connection;
    uint64_t lastUsed;  // in rounds
  };

  std::vector<pollfd> waitedFor(int wake) const;
  void serveReady(const pollfd& ready);
  void serveDatagram(int fd, const socket_t& socket);
  void acceptClient(int fd, const socket_t& socket);
  bool closeOldest();

  rpcAdmit_t admit_;
  std::map<int, socket_t> sockets_;  // by descriptor
  std::map<int, client_t> clients_;  // by descriptor
  uint64_t round_ = 0;
  std::vector<char> datagram_;
  size_t libraryTransportsBefore_;
  std::unique_lock<std::mutex> library_;  // held while this server serves the library's transports
};

#endif
