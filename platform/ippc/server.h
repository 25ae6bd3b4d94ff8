// The server: one thread that serves all clients, one request at a time.
//
// A client costs a descriptor and, while it does not read a reply, that one reply: nothing more is taken from it until
// it does. So a client that sleeps, dies or floods disturbs nobody. When all places are taken, the user who has the
// most gives one up to somebody who has fewer: the connection that was silent longest. Whoever has no claim on a place
// is told that the server is busy, and is not kept.
//
// Each request is served in the name of the user who made the connection (base/caller.h).
#ifndef PLATFORM_IPPC_SERVER_H
#define PLATFORM_IPPC_SERVER_H

#include "base/caller.h"
#include "base/descriptor.h"
#include "platform/ippc/dispatch.h"

#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace ippc {

inline constexpr size_t connections_max = 64;

class server {
public:
  server(std::string path, ippcCallback callback);
  // Ends the thread, closes all connections and removes the socket file.
  ~server();
  server(const server&) = delete;
  server& operator=(const server&) = delete;

  // 0, or -1 with errno set: EADDRINUSE when a living server answers on the path or something else than a socket is
  // there.
  int start();

private:
  struct connection {
    descriptor socket;
    std::optional<caller> peer;         // who connected, as the kernel tells it
    uint64_t last_request = 0;          // counts connections and requests; greater is later
    std::vector<unsigned char> unsent;  // waits to be sent; empty while requests are taken
  };

  void serve();
  void serve_event(int fd, uint32_t events);
  void accept_one();
  bool make_room(const connection& newcomer);
  void drop(int fd);
  void read_one(int fd);
  void write_rest(int fd);
  void reply_send(int fd, connection& client, const std::vector<unsigned char>& packet);
  void watch(int fd, uint32_t events, int operation) const;

  std::string path_;
  dispatch dispatch_;
  std::map<int, connection> connections_;
  uint64_t requests_ = 0;
  std::vector<unsigned char> packet_;
  descriptor listener_;
  descriptor poll_;
  descriptor ending_;
  std::thread thread_;
};

}  // namespace ippc

#endif
