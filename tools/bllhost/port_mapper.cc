#include "tools/bllhost/port_mapper.h"

#include "rte/BLL/core/rpc_bll_service.h"

#include <arpa/inet.h>
#include <rpc/pmap_clnt.h>
#include <rpc/pmap_prot.h>

// pmap_getport() would do but for its patience: a minute, with SIGTERM waiting.
bool mapper_knows_us()
{
  sockaddr_in mapper = {};
  mapper.sin_family = AF_INET;
  mapper.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  mapper.sin_port = htons(PMAPPORT);
  int own_socket = RPC_ANYSOCK;
  const timeval again_after = {1, 0}, limit = {2, 0};
  CLIENT* const client = clntudp_create(&mapper, PMAPPROG, PMAPVERS, again_after, &own_socket);
  if (!client)
    return false;
  pmap asked = {bllRpcProgram, bllRpcVersion, IPPROTO_UDP, 0};
  u_short port = 0;
  const clnt_stat status =
      clnt_call(client, PMAPPROC_GETPORT, reinterpret_cast<xdrproc_t>(xdr_pmap), reinterpret_cast<char*>(&asked),
                reinterpret_cast<xdrproc_t>(xdr_u_short), reinterpret_cast<char*>(&port), limit);
  clnt_destroy(client);
  return status == RPC_SUCCESS && port != 0;
}
