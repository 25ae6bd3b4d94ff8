// A small HTTP server on one thread: the least that lets scrapers, curl and pppoeiactl read, and that none of them can
// hold up or fill. One request a connection; an answer is made as its peer takes it.
//
// At most 64 connections: a further one takes the place of the oldest that has its answer to wait for, so that those
// who hang cannot keep others out. A request has ten seconds to arrive whole, and an answer may stand still as long.
// Answers without an end (the monitor's) may stand still for ever; there are at most 8.
#ifndef PPPOEIA_STATUS_HTTP_SERVER_H
#define PPPOEIA_STATUS_HTTP_SERVER_H

#include "pppoeia/status/http_request.h"

#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

// The body of an answer, part by part.
class http_body {
public:
  enum class more {
    yes,
    later,  // nothing at the moment: asked again in some 20 ms
    no,
  };
  virtual ~http_body() = default;
  // Appends the next part to `to`.
  virtual more next(std::string& to) = 0;
  // Whether it goes on until the peer leaves.
  virtual bool is_endless() const { return false; }
};

struct http_answer {
  int status = 200;
  const char* content_type = "text/plain; charset=utf-8";
  std::string text{};                 // the body, or its beginning
  std::unique_ptr<http_body> rest{};  // or null
};

class http_server {
public:
  using handler = std::function<http_answer(const http_request&)>;
  static constexpr size_t connections_most = 64;
  static constexpr size_t endless_most = 8;

  explicit http_server(handler answer);
  ~http_server();
  http_server(const http_server&) = delete;
  http_server& operator=(const http_server&) = delete;

  // Serves who connects to that path, or to an address like "127.0.0.1:9411". False, with errno set.
  bool listen_at_path(const std::string& path);
  bool listen_at_address(const std::string& address);

  // Serves for that long, or until wake().
  void serve(std::chrono::milliseconds time);
  // Any thread: serve() returns soon, also one that has not begun.
  void wake();

private:
  struct connection;
  using connections = std::list<connection>;

  bool add_listener(int fd);
  void accept_all(int listener);
  bool make_room();
  void attend(connection& peer, int events);
  void receive(connection& peer);
  void answer(connection& peer, const http_request& request);
  void refuse(connection& peer, int status);
  void send(connection& peer);
  size_t endless() const;
  int patience(int wanted) const;
  void drop_late();

  handler handler_;
  int wake_;
  std::vector<int> listeners_;
  std::string path_;   // of the socket that it made
  connections peers_;  // oldest first
};

#endif
