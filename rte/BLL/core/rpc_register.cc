#include "rte/BLL/core/rpc_register.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <netinet/in.h>
#include <rpc/pmap_clnt.h>
#include <rpc/rpc_com.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

// A record of a TCP client is kept until it is whole: so much, and no more, or the connection is closed. Setting it
// also keeps the runtime from waiting for the rest of a record that never comes, which would hold up everybody else;
// the price is that the runtime cannot decode a record of more than 64 KiB, all strings together.
int largestRecord = 256 * 1024;
constexpr int backlog = 128;

struct service_t {
  rpcprog_t program;
  rpcvers_t version;
  rpcDispatch_t dispatch;
};

struct protocol_t {
  const char* name;
  int socketType;
  rpcprot_t number;
};

// `what` stands before the service, `rest` behind it; the reason follows where the system gave one.
void report(int line, const service_t& service, const std::string& what, const char* rest = "", int error = 0)
{
  std::fprintf(stderr, "%s:%d Cannot %s RPC service 0x%08lx/%lu, version %lu%s", "rpc_register.cc", line, what.c_str(),
               static_cast<unsigned long>(service.program), static_cast<unsigned long>(service.program),
               static_cast<unsigned long>(service.version), rest);
  if (error)
    std::fprintf(stderr, " (%d - %s)", error, std::strerror(error));
  std::fprintf(stderr, ".\n");
}

// A socket on the loopback interface, or -1 after a report.
int loopbackSocket(const service_t& service, const protocol_t& protocol)
{
  const std::string name = protocol.name;
  const int fd = socket(AF_INET, protocol.socketType | SOCK_CLOEXEC, static_cast<int>(protocol.number));
  if (fd < 0) {
    report(__LINE__, service, "create " + name + " socket for", "", errno);
    return -1;
  }
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0)
    report(__LINE__, service, "bind " + name + " socket for", "", errno);
  else if (protocol.socketType == SOCK_STREAM && listen(fd, backlog) < 0)
    report(__LINE__, service, "set " + name + " socket for", " to listen mode", errno);
  else
    return fd;
  close(fd);
  return -1;
}

SVCXPRT* createTransport(int fd, const protocol_t& protocol)
{
  return protocol.socketType == SOCK_DGRAM ? svcudp_create(fd) : svctcp_create(fd, 0, 0);
}

// Null after a report.
SVCXPRT* startTransport(const service_t& service, const protocol_t& protocol)
{
  const int fd = loopbackSocket(service, protocol);
  if (fd < 0)
    return nullptr;
  SVCXPRT* const transport = createTransport(fd, protocol);
  if (!transport) {
    report(__LINE__, service, std::string("create ") + protocol.name);
    close(fd);
    return nullptr;
  }
  if (svc_register(transport, service.program, service.version, service.dispatch, static_cast<int>(protocol.number)))
    return transport;
  report(__LINE__, service, std::string("register ") + protocol.name);
  svc_destroy(transport);  // nobody could find it
  return nullptr;
}

}  // namespace

void rpcProxyRegisterSvc(rpcprog_t program, rpcvers_t version, rpcDispatch_t dispatch)
{
  static auto& transports = *new std::map<std::pair<rpcprog_t, rpcvers_t>, std::vector<SVCXPRT*>>;
  static constexpr protocol_t protocols[] = {{"UDP", SOCK_DGRAM, IPPROTO_UDP}, {"TCP", SOCK_STREAM, IPPROTO_TCP}};

  rpc_control(RPC_SVC_CONNMAXREC_SET, &largestRecord);
  pmap_unset(program, version);
  std::vector<SVCXPRT*>& own = transports[{program, version}];
  for (SVCXPRT* const earlier : own)
    svc_destroy(earlier);
  own.clear();
  for (const protocol_t& protocol : protocols)
    if (SVCXPRT* const transport = startTransport({program, version, dispatch}, protocol))
      own.push_back(transport);
}
