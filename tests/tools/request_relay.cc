#include "tests/tools/request_relay.h"

#include "tests/tools/running_agent.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace {

sockaddr_un address_of(const std::string& path)
{
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  return address;
}

// A packet that is there, from one to the other. False when none is.
bool packet_pass(int from, int to, std::vector<unsigned char>& packet)
{
  const ssize_t size = recv(from, packet.data(), packet.size(), MSG_DONTWAIT);
  return size > 0 && send(to, packet.data(), static_cast<size_t>(size), MSG_NOSIGNAL) == size;
}

}  // namespace

request_relay::request_relay(std::string agent_socket) : agent_socket_(std::move(agent_socket)), socket_(fresh_socket())
{
  const sockaddr_un address = address_of(socket_);
  listener_ = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address) | listen(listener_, 4), 0);
  thread_ = std::thread([this] { serve(); });
}

request_relay::~request_relay()
{
  shutdown(listener_, SHUT_RDWR);
  thread_.join();
  close(listener_);
  unlink(socket_.c_str());
  unlink((socket_ + ".known").c_str());
}

void request_relay::kill_at(size_t request, bool done)
{
  hang_up_ = false;
  done_ = done;
  kill_at_ = request;
}

void request_relay::hang_up_at(size_t request, bool done)
{
  kill_at(request, done);
  hang_up_ = true;
}

void request_relay::serve()
{
  const sockaddr_un address = address_of(agent_socket_);
  for (int tool; (tool = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
    const int agent = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    count_ = 0;
    if (connect(agent, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
      pass(tool, agent);
    close(agent);
    close(tool);
  }
}

void request_relay::pass(int tool, int agent)
{
  ucred peer{};
  socklen_t size = sizeof peer;
  getsockopt(tool, SOL_SOCKET, SO_PEERCRED, &peer, &size);
  std::vector<unsigned char> packet(65536);
  pollfd either[] = {{tool, POLLIN, 0}, {agent, POLLIN, 0}};
  for (size_t answered = 0; poll(either, 2, -1) > 0 && (either[0].revents | either[1].revents) == POLLIN;) {
    while (packet_pass(agent, tool, packet))
      ++answered;
    while (kill_at_ == 0 || count_ + !done_ < kill_at_) {
      if (!packet_pass(tool, agent, packet))
        break;
      ++count_;
    }
    const bool reached = kill_at_ != 0 && count_ + !done_ == kill_at_;
    if (reached && answered + !done_ == kill_at_) {
      if (!hang_up_)
        kill(peer.pid, SIGKILL);
      return;
    }
  }
}
