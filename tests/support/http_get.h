// The other side of the agent's status server, for tests.
#ifndef TESTS_SUPPORT_HTTP_GET_H
#define TESTS_SUPPORT_HTTP_GET_H

#include "base/descriptor.h"

#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

// A connection, or an invalid descriptor.
inline descriptor http_connect(const std::string& path)
{
  sockaddr_un address{AF_UNIX, {}};
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  descriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const timeval patience{20, 0};
  setsockopt(made.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  if (connect(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    return descriptor();
  return made;
}

// All that comes until the other side closes.
inline std::string http_rest(int fd)
{
  std::string text;
  char part[16384];
  for (ssize_t size; (size = recv(fd, part, sizeof part, 0)) > 0;)
    text.append(part, static_cast<size_t>(size));
  return text;
}

// Sends those bytes. What comes back, head and all.
inline std::string http_exchange(const std::string& path, const std::string& request)
{
  const descriptor peer = http_connect(path);
  send(peer.get(), request.data(), request.size(), MSG_NOSIGNAL);
  return http_rest(peer.get());
}

// The body of a page that must be there.
inline std::string http_get(const std::string& path, const std::string& target)
{
  const std::string answer = http_exchange(path, "GET " + target + " HTTP/1.1\r\nHost: agent\r\n\r\n");
  return answer.starts_with("HTTP/1.1 200 ") ? answer.substr(answer.find("\r\n\r\n") + 4) : "";
}

#endif
