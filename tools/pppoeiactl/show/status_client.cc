#include "tools/pppoeiactl/show/status_client.h"

#include "tools/pppoeiactl/agent/context.h"

#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr int answer_most_s = 10;

class status_connection {
public:
  explicit status_connection(const std::string& path)
  {
    sockaddr_un address{AF_UNIX, {}};
    if (path.size() >= sizeof address.sun_path)
      throw command_error(exit_usage, "PPPOEIA_STATUS_SOCKET: longer than a socket's path: '" + path + "'");
    path.copy(address.sun_path, path.size());
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval patience{answer_most_s, 0};
    setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    if (connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
      return;
    const int reason = errno;
    close(fd_);
    if (reason == EACCES || reason == EPERM)
      throw command_error(exit_no_permission, "no permission for " + path);
    throw command_error(exit_no_agent, "no agent shows its status on " + path + " (" + std::strerror(reason) + ")");
  }
  ~status_connection() { close(fd_); }
  status_connection(const status_connection&) = delete;
  status_connection& operator=(const status_connection&) = delete;

  // Sends the request, and takes the answer's head.
  void ask(const status_page& page)
  {
    const std::string request = "GET " + page.target() + " HTTP/1.1\r\nHost: agent\r\n\r\n";
    ::send(fd_, request.data(), request.size(), MSG_NOSIGNAL);
    size_t end;
    while ((end = text_.find("\r\n\r\n")) == std::string::npos)
      if (!more())
        throw command_error(exit_time_out, "the agent did not answer in time");
    const std::string status = text_.substr(0, text_.find("\r\n"));
    text_.erase(0, end + 4);
    if (status.find(" 503 ") != std::string::npos)
      throw command_error(exit_busy, "the agent has as many who watch as it serves");
    if (status.find(" 200 ") == std::string::npos)
      throw command_error(exit_usage, "the agent does not take the request: " + page.target());
  }

  // Receives more behind what is there. False at the end, and when nothing comes.
  bool more()
  {
    char part[65536];
    const ssize_t size = recv(fd_, part, sizeof part, 0);
    if (size > 0)
      text_.append(part, static_cast<size_t>(size));
    return size > 0;
  }
  void be_patient()
  {
    const timeval no_limit{};
    setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &no_limit, sizeof no_limit);
  }
  std::string& text() { return text_; }

private:
  int fd_ = -1;
  std::string text_;
};

std::string percent_encoded(const std::string& text)
{
  std::string encoded;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    char code[4];
    std::snprintf(code, sizeof code, "%%%02x", byte);
    encoded += std::isalnum(byte) ? std::string(1, c) : std::string(code);
  }
  return encoded;
}

}  // namespace

status_page& status_page::with(const std::string& name, const std::string& value)
{
  target_ += (target_.find('?') == std::string::npos ? "?" : "&") + name + "=" + percent_encoded(value);
  return *this;
}

status_page& status_page::with_place(const std::vector<std::string>& arguments)
{
  if (!arguments.empty())
    with("bridge", arguments[0]);
  return arguments.size() > 1 ? with("port", arguments[1]) : *this;
}

std::string status_socket()
{
  const char* given = std::getenv("PPPOEIA_STATUS_SOCKET");
  return given && *given ? given : "/run/pppoeia/status";
}

nlohmann::json status_get(const status_page& page)
{
  status_connection agent(status_socket());
  agent.ask(page);
  while (agent.more()) {
  }
  try {
    return nlohmann::json::parse(agent.text());
  } catch (const nlohmann::json::exception&) {
    throw command_error(exit_time_out, "the agent's answer is cut");
  }
}

void status_follow(const status_page& page, const std::function<bool(const std::string& line)>& take)
{
  status_connection agent(status_socket());
  agent.ask(page);
  agent.be_patient();
  do {
    size_t end;
    while ((end = agent.text().find('\n')) != std::string::npos) {
      const std::string line = agent.text().substr(0, end);
      agent.text().erase(0, end + 1);
      if (!take(line))
        return;
    }
  } while (agent.more());
  throw command_error(exit_no_agent, "the agent has ended");
}
