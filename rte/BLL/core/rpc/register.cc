// Registering a program: its sockets, the port mapper's entries, and who serves them.
#include "rte/BLL/core/rpc_register.h"

#include "base/thread_annotations.h"
#include "rte/BLL/core/rpc/server.h"
#include <arpa/inet.h>
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

constexpr int backlog = 128;

struct protocol_t {
  const char* name;
  int socketType;
  rpcprot_t number;
};

// `what` stands before the service, `rest` behind it; the reason follows where the system gave one.
void report(int line, const rpcService_t& service, const std::string& what, const char* rest = "", int error = 0)
{
  std::fprintf(stderr, "%s:%d Cannot %s RPC service 0x%08lx/%lu, version %lu%s", "rpc_register.cc", line, what.c_str(),
               static_cast<unsigned long>(service.program), static_cast<unsigned long>(service.program),
               static_cast<unsigned long>(service.version), rest);
  if (error)
    std::fprintf(stderr, " (%d - %s)", error, std::strerror(error));
  std::fprintf(stderr, ".\n");
}

// A socket on the loopback interface, or -1 after a report.
int loopbackSocket(const rpcService_t& service, const protocol_t& protocol)
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

// Takes the socket for the server of this thread, or closes it after a report.
void serveOn(rpcServer_t& server, const rpcService_t& service, const protocol_t& protocol, int fd)
{
  sockaddr_in address = {};
  socklen_t size = sizeof address;
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  const int number = static_cast<int>(protocol.number);
  if (pmap_set(service.program, service.version, number, ntohs(address.sin_port)))
    return server.add(service, fd, number);
  report(__LINE__, service, std::string("register ") + protocol.name);
  close(fd);
}

// Takes the socket for a transport in the RPC library's table, or closes it after a report and answers null. With a
// limit for records the library does not wait, either, for the rest of a record that never comes.
SVCXPRT* makeTransport(const rpcService_t& service, const protocol_t& protocol, int fd)
{
  int largestRecord = rpcConnection_t::largestRecord;
  rpc_control(RPC_SVC_CONNMAXREC_SET, &largestRecord);
  SVCXPRT* const transport = protocol.socketType == SOCK_DGRAM ? svcudp_create(fd) : svctcp_create(fd, 0, 0);
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

// Those that were made for each program by the RPC library's own functions.
struct libraryTransports_t {
  checked_mutex mutex;  // held while a program is registered, one at a time
  std::map<std::pair<rpcprog_t, rpcvers_t>, std::vector<SVCXPRT*>> byProgram TSA_GUARDED_BY(mutex);
};

}  // namespace

void rpcProxyRegisterSvc(rpcprog_t program, rpcvers_t version, rpcDispatch_t dispatch)
{
  static constexpr protocol_t protocols[] = {{"UDP", SOCK_DGRAM, IPPROTO_UDP}, {"TCP", SOCK_STREAM, IPPROTO_TCP}};
  static auto& transports = *new libraryTransports_t;

  const mutex_guard guard(transports.mutex);
  const rpcService_t service{program, version, dispatch};
  rpcServer_t* const server = rpcServer_t::ofThisThread();
  pmap_unset(program, version);
  if (server)
    server->remove(program, version);
  for (SVCXPRT* const earlier : std::exchange(transports.byProgram[{program, version}], {}))
    svc_destroy(earlier);
  for (const protocol_t& protocol : protocols) {
    const int fd = loopbackSocket(service, protocol);
    if (fd >= 0 && server)
      serveOn(*server, service, protocol, fd);
    else if (SVCXPRT* const transport = fd < 0 ? nullptr : makeTransport(service, protocol, fd))
      transports.byProgram[{program, version}].push_back(transport);
  }
}
