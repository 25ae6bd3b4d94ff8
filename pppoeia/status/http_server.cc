#include "pppoeia/status/http_server.h"

#include "base/listener.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using clock_type = std::chrono::steady_clock;
constexpr auto stand_still_most = std::chrono::seconds(10);
constexpr int look_again_ms = 20;
constexpr size_t part_size = 64 * 1024;  // of an answer that is made before it is sent

const char* reason_of(int status)
{
  switch (status) {
  case 400:
    return "Bad Request";
  case 404:
    return "Not Found";
  case 405:
    return "Method Not Allowed";
  default:
    return "Service Unavailable";
  }
}

// "127.0.0.1:9411"
bool address_read(const std::string& text, sockaddr_in& address)
{
  const size_t colon = text.rfind(':');
  if (colon == std::string::npos)
    return false;
  const char* const end = text.data() + text.size();
  uint16_t port = 0;
  const auto [behind, error] = std::from_chars(text.data() + colon + 1, end, port);
  address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  return error == std::errc{} && behind == end &&
         inet_pton(AF_INET, text.substr(0, colon).c_str(), &address.sin_addr) == 1;
}

}  // namespace

struct http_server::connection {
  explicit connection(int socket) : fd(socket) {}
  ~connection() { close(fd); }
  connection(const connection&) = delete;
  connection& operator=(const connection&) = delete;

  const int fd;
  std::string in{};
  std::string out{};
  size_t sent = 0;  // of `out`
  std::unique_ptr<http_body> rest{};
  bool answering = false;
  bool heard_out = false;  // the peer has closed its side; what it asked for it still gets
  bool done = false;
  clock_type::time_point moved = clock_type::now();

  bool is_endless() const { return rest && rest->is_endless(); }
  bool is_late() const { return !is_endless() && clock_type::now() - moved > stand_still_most; }
  bool has_unsent() const { return sent < out.size(); }
  short awaited() const
  {
    const int to_send = answering && (has_unsent() || !is_endless()) ? POLLOUT : 0;
    return static_cast<short>(heard_out ? to_send : to_send | POLLIN);
  }
};

http_server::http_server(handler answer) : handler_(std::move(answer)), wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

http_server::~http_server()
{
  for (const int fd : listeners_)
    close(fd);
  if (!path_.empty())
    unlink(path_.c_str());
  if (wake_ >= 0)
    close(wake_);
}

bool http_server::add_listener(int fd)
{
  if (fd >= 0)
    listeners_.push_back(fd);
  return fd >= 0;
}

bool http_server::listen_at_path(const std::string& path)
{
  if (!add_listener(listener_open(path, SOCK_STREAM)))
    return false;
  path_ = path;
  return true;
}

bool http_server::listen_at_address(const std::string& address)
{
  sockaddr_in to;
  if (!address_read(address, to)) {
    errno = EINVAL;
    return false;
  }
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  constexpr int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (fd >= 0 && bind(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0 && listen(fd, 64) == 0)
    return add_listener(fd);
  const int reason = errno;
  close(fd);
  errno = reason;
  return false;
}

void http_server::wake()
{
  eventfd_write(wake_, 1);
}

// The oldest that has waited for something else than news gives way.
bool http_server::make_room()
{
  if (peers_.size() < connections_most)
    return true;
  const auto oldest = std::ranges::find_if(peers_, [](const connection& peer) { return !peer.is_endless(); });
  if (oldest == peers_.end())
    return false;
  peers_.erase(oldest);
  return true;
}

// A request mostly comes with its connection: it is looked for at once.
void http_server::accept_all(int listener)
{
  constexpr int most_at_once = 16;
  for (int i = 0; i < most_at_once && make_room(); ++i) {
    const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0) {
      if (errno == EMFILE || errno == ENFILE)
        poll(nullptr, 0, look_again_ms);  // who knocks stays there: this must not spin
      return;
    }
    receive(peers_.emplace_back(fd));
  }
}

void http_server::receive(connection& peer)
{
  char part[2048];
  const ssize_t size = recv(peer.fd, part, sizeof part, 0);
  if (size < 0 && (errno == EAGAIN || errno == EINTR))
    return;
  if (size <= 0) {
    peer.heard_out = true;
    peer.done = !peer.answering || peer.is_endless();
    return;
  }
  if (peer.answering)
    return;  // what follows a request is not looked at
  peer.in.append(part, static_cast<size_t>(size));
  http_request request;
  switch (http_request_read(peer.in, request)) {
  case request_state::incomplete:
    return;
  case request_state::complete:
    return answer(peer, request);
  case request_state::wrong:
    return refuse(peer, 400);
  case request_state::wrong_method:
    return refuse(peer, 405);
  }
}

void http_server::refuse(connection& peer, int status)
{
  peer.answering = true;
  peer.out = "HTTP/1.1 " + std::to_string(status) + " " + reason_of(status) +
             "\r\nContent-Type: text/plain\r\nConnection: close\r\n" + (status == 405 ? "Allow: GET\r\n" : "") +
             "\r\n" + reason_of(status) + "\n";
  send(peer);
}

void http_server::answer(connection& peer, const http_request& request)
{
  http_answer made = handler_(request);
  if (made.status != 200)
    return refuse(peer, made.status);
  if (made.rest && made.rest->is_endless() && endless() >= endless_most)
    return refuse(peer, 503);
  peer.answering = true;
  peer.in.clear();
  peer.out = std::string("HTTP/1.1 200 OK\r\nContent-Type: ") + made.content_type + "\r\nConnection: close\r\n";
  if (!made.rest)
    peer.out += "Content-Length: " + std::to_string(made.text.size()) + "\r\n";
  peer.out += "\r\n" + made.text;
  peer.rest = std::move(made.rest);
  send(peer);
}

size_t http_server::endless() const
{
  return static_cast<size_t>(std::ranges::count_if(peers_, &connection::is_endless));
}

// As much as the peer takes now, but not so much that others wait long for their turn.
void http_server::send(connection& peer)
{
  constexpr int most_parts = 4;
  for (int part = 0; part < most_parts; ++part) {
    while (peer.rest && peer.out.size() - peer.sent < part_size) {
      const http_body::more more = peer.rest->next(peer.out);
      if (more == http_body::more::no)
        peer.rest.reset();
      if (more == http_body::more::later)
        break;
    }
    if (!peer.has_unsent()) {
      peer.done = !peer.rest;
      return;
    }
    const ssize_t size = ::send(peer.fd, peer.out.data() + peer.sent, peer.out.size() - peer.sent, MSG_NOSIGNAL);
    if (size < 0) {
      peer.done = errno != EAGAIN && errno != EINTR;
      return;
    }
    peer.sent += static_cast<size_t>(size);
    peer.moved = clock_type::now();
    if (!peer.has_unsent() || peer.sent > part_size) {
      peer.out.erase(0, peer.sent);
      peer.sent = 0;
    }
  }
}

void http_server::attend(connection& peer, int events)
{
  if (events & (POLLERR | POLLHUP))
    peer.done = !(events & POLLIN) || peer.answering;
  if (events & POLLIN && !peer.done)
    receive(peer);
  if (peer.answering && !peer.done && (events & POLLOUT || peer.is_endless()))
    send(peer);
}

int http_server::patience(int wanted) const
{
  return endless() > 0 ? std::min(wanted, look_again_ms) : wanted;
}

void http_server::drop_late()
{
  std::erase_if(peers_, [](const connection& peer) { return peer.done || peer.is_late(); });
}

void http_server::serve(std::chrono::milliseconds time)
{
  std::vector<pollfd> waits{{wake_, POLLIN, 0}};
  for (const int fd : listeners_)
    waits.push_back({fd, POLLIN, 0});
  std::vector<connection*> served;
  for (connection& peer : peers_) {
    served.push_back(&peer);
    waits.push_back({peer.fd, peer.awaited(), 0});
  }
  if (poll(waits.data(), waits.size(), patience(static_cast<int>(time.count()))) > 0 && waits[0].revents)
    return;
  const auto events = waits.begin() + static_cast<std::ptrdiff_t>(1 + listeners_.size());
  for (size_t i = 0; i < served.size(); ++i)
    attend(*served[i], events[static_cast<std::ptrdiff_t>(i)].revents);
  drop_late();
  for (size_t i = 0; i < listeners_.size(); ++i)
    if (waits[1 + i].revents)
      accept_all(listeners_[i]);
  drop_late();
}
