// The server: one thread that serves all clients, one request at a time.
//
// A client costs a descriptor and, while it does not read a reply, that one reply: nothing more is taken from it until
// it does. So a client that sleeps, dies or floods disturbs nobody. Connections beyond the most are closed at once.
#ifndef PLATFORM_IPPC_SERVER_H
#define PLATFORM_IPPC_SERVER_H

#include "platform/ippc/dispatch.h"

#include <map>
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
  // What waits to be sent; empty while requests are taken.
  struct connection {
    std::vector<unsigned char> unsent;
  };

  void serve();
  void accept_one();
  void drop(int fd);
  void read_one(int fd, bool hung_up);
  void write_rest(int fd);
  void reply_send(int fd, connection& client, const std::vector<unsigned char>& packet);
  void watch(int fd, uint32_t events, int operation) const;

  std::string path_;
  dispatch dispatch_;
  std::map<int, connection> connections_;
  std::vector<unsigned char> packet_;
  int listener_ = -1;
  int poll_ = -1;
  int ending_ = -1;
  std::thread thread_;
};

}  // namespace ippc

#endif
