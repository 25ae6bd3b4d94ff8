#include "tests/support/files.h"
// A message broker of the test's own: Debian's rabbitmq-server with its node name, home, data and ports in a new
// temporary directory and on loopback only. Where none is installed, installed() says so. Started processes die with
// the test.
#ifndef TESTS_FRAMEWORK_RABBIT_MQ_BROKER_H
#define TESTS_FRAMEWORK_RABBIT_MQ_BROKER_H

#include <amqp.h>
#include <amqp_tcp_socket.h>
#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

inline int freePort()
{
  const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  bind(probe, reinterpret_cast<sockaddr*>(&address), size);
  getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size);
  close(probe);
  return ntohs(address.sin_port);
}

// The library's own blocking client, for what the tested one does not offer. False on any failure.
template <typename Action>
bool withPlainClient(int port, Action&& action)
{
  const amqp_connection_state_t state = amqp_new_connection();
  timeval wait = {2, 0};
  bool good = amqp_socket_open_noblock(amqp_tcp_socket_new(state), "127.0.0.1", port, &wait) == AMQP_STATUS_OK;
  amqp_set_handshake_timeout(state, &wait);
  good = good && amqp_login(state, "/", 0, 131072, 0, AMQP_SASL_METHOD_PLAIN, "guest", "guest").reply_type ==
                     AMQP_RESPONSE_NORMAL;
  good = good && amqp_channel_open(state, 1) && action(state);
  if (good)
    amqp_connection_close(state, AMQP_REPLY_SUCCESS);
  amqp_destroy_connection(state);
  return good;
}

class Broker {
public:
  static bool installed() { return access(server, X_OK) == 0 && access(portMapper, X_OK) == 0; }

  Broker()
  {
    environment_ = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin",
                    "HOME=" + directory_,
                    "RABBITMQ_NODENAME=test" + std::to_string(getpid()) + "@127.0.0.1",
                    "RABBITMQ_USE_LONGNAME=true",  // an address, so that no name has to be looked up
                    "RABBITMQ_NODE_IP_ADDRESS=127.0.0.1",
                    "RABBITMQ_NODE_PORT=" + std::to_string(port_),
                    "RABBITMQ_DIST_PORT=" + std::to_string(freePort()),
                    "RABBITMQ_SERVER_ADDITIONAL_ERL_ARGS=-kernel inet_dist_use_interface {127,0,0,1}",
                    "RABBITMQ_MNESIA_BASE=" + directory_ + "/data",
                    "RABBITMQ_LOG_BASE=" + directory_ + "/log",
                    "RABBITMQ_PID_FILE=" + directory_ + "/pid",
                    "RABBITMQ_CONFIG_FILE=" + directory_ + "/none",
                    "RABBITMQ_CONF_ENV_FILE=/dev/null",
                    "RABBITMQ_ENABLED_PLUGINS_FILE=" + directory_ + "/plugins",
                    "RABBITMQ_ALLOW_INPUT=1",  // no shell between this process and the broker
                    "ERL_EPMD_ADDRESS=127.0.0.1",
                    "ERL_EPMD_PORT=" + std::to_string(freePort())};
    names_ = run({portMapper});  // started here, or the broker would leave one behind
  }
  ~Broker()
  {
    stop();
    end(names_);
  }
  Broker(const Broker&) = delete;
  Broker& operator=(const Broker&) = delete;

  int port() const { return port_; }
  // Until it serves; false when it does not within a minute.
  bool start()
  {
    broker_ = run({server, "-noinput"});
    for (int tries = 0; tries < 300; ++tries) {
      if (withPlainClient(port_, [](amqp_connection_state_t) { return true; }))
        return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    return false;
  }
  void stop() { end(broker_); }

private:
  static constexpr const char* server = "/usr/lib/rabbitmq/bin/rabbitmq-server";
  static constexpr const char* portMapper = "/usr/bin/epmd";

  pid_t run(std::vector<std::string> command)
  {
    std::vector<char*> arguments;
    std::vector<char*> environment;
    for (std::string& argument : command)
      arguments.push_back(argument.data());
    for (std::string& variable : environment_)
      environment.push_back(variable.data());
    arguments.push_back(nullptr);
    environment.push_back(nullptr);
    const std::string output = directory_ + "/output";
    const pid_t child = fork();
    if (child != 0)
      return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(open("/dev/null", O_RDONLY), 0);
    dup2(dup2(open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), 1), 2);
    execve(arguments[0], arguments.data(), environment.data());
    _exit(127);
  }
  // Asks the process to end, and after half a minute does not ask any more.
  static void end(pid_t& process)
  {
    if (process <= 0)
      return;
    kill(process, SIGTERM);
    for (int tries = 0; tries < 300 && waitpid(process, nullptr, WNOHANG) == 0; ++tries)
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    if (kill(process, SIGKILL) == 0)
      waitpid(process, nullptr, 0);
    process = -1;
  }

  const int port_ = freePort();
  const own_folder own_;
  const std::string& directory_ = own_.path;
  std::vector<std::string> environment_;
  pid_t names_ = -1;
  pid_t broker_ = -1;
};

#endif
