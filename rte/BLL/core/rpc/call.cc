#include "rte/BLL/core/rpc/call.h"

#include <arpa/inet.h>
#include <cstring>
#include <rpc/auth_unix.h>
#include <rpc/rpc_msg.h>

namespace {

// The message, and the transport that the dispatch routine knows it by.
class call_t {
public:
  call_t(std::span<char> message, const rpcPeer_t& peer, size_t largestReply);
  ~call_t() { xdr_free(reinterpret_cast<xdrproc_t>(xdr_authunix_parms), &names_); }
  call_t(const call_t&) = delete;
  call_t& operator=(const call_t&) = delete;

  // False if that cannot be done; arguments begin behind the header.
  bool decodeHeader() { return xdr_callmsg(&xdrs_, &header_); }
  // Answers a message whose header cannot be decoded.
  void refuseHeader();
  // The request, with the caller's names where it has sent any. They are its own words and prove nothing.
  auth_stat authenticate(svc_req& request);

  SVCXPRT* transport() { return &transport_; }
  std::string& reply() { return reply_; }

private:
  static const struct SVCXPRT::xp_ops operations;
  static const struct SVCXPRT::xp_ops2 moreOperations;
  static call_t& of(SVCXPRT* transport) { return *static_cast<call_t*>(transport->xp_p1); }
  static bool_t getArguments(SVCXPRT* transport, xdrproc_t routine, void* arguments);
  static bool_t freeArguments(SVCXPRT* transport, xdrproc_t routine, void* arguments);
  static bool_t sendReply(SVCXPRT* transport, rpc_msg* message);
  std::optional<uint32_t> word(size_t index) const;

  std::span<char> message_;
  size_t largestReply_;
  sockaddr_in own_;
  sockaddr_in caller_;
  XDR xdrs_ = {};
  rpc_msg header_ = {};
  char credential_[MAX_AUTH_BYTES];
  char verifier_[MAX_AUTH_BYTES];
  authunix_parms names_ = {};
  SVCXPRT transport_ = {};
  std::string reply_;
};

const struct SVCXPRT::xp_ops call_t::operations = {
    .xp_recv = [](SVCXPRT*, rpc_msg*) -> bool_t { return FALSE; },
    .xp_stat = [](SVCXPRT*) { return XPRT_IDLE; },
    .xp_getargs = getArguments,
    .xp_reply = sendReply,
    .xp_freeargs = freeArguments,
    .xp_destroy = [](SVCXPRT*) {},
};

const struct SVCXPRT::xp_ops2 call_t::moreOperations = {
    .xp_control = [](SVCXPRT*, u_int, void*) -> bool_t { return FALSE; },
};

call_t::call_t(std::span<char> message, const rpcPeer_t& peer, size_t largestReply)
    : message_(message), largestReply_(largestReply), own_(peer.own), caller_(peer.caller)
{
  static char udp[] = "udp";
  static char tcp[] = "tcp";
  xdrmem_create(&xdrs_, message.data(), static_cast<u_int>(message.size()), XDR_DECODE);
  header_.rm_call.cb_cred.oa_base = credential_;
  header_.rm_call.cb_verf.oa_base = verifier_;
  transport_.xp_fd = peer.fd;
  transport_.xp_port = ntohs(own_.sin_port);
  transport_.xp_ops = &operations;
  transport_.xp_ops2 = &moreOperations;
  transport_.xp_netid = peer.protocol == IPPROTO_UDP ? udp : tcp;
  transport_.xp_ltaddr = {sizeof own_, sizeof own_, &own_};
  transport_.xp_rtaddr = {sizeof caller_, sizeof caller_, &caller_};
  transport_.xp_addrlen = sizeof caller_;
  std::memcpy(&transport_.xp_raddr, &caller_, sizeof caller_);
  transport_.xp_p1 = this;
}

std::optional<uint32_t> call_t::word(size_t index) const
{
  uint32_t value;
  if (message_.size() < (index + 1) * sizeof value)
    return {};
  std::memcpy(&value, message_.data() + index * sizeof value, sizeof value);
  return ntohl(value);
}

// Replies are not answered, or two services could keep each other busy.
void call_t::refuseHeader()
{
  if (word(1) != CALL)
    return;
  header_.rm_xid = *word(0);
  if (word(2).value_or(RPC_MSG_VERSION) == RPC_MSG_VERSION)
    return svcerr_decode(&transport_);
  rpc_msg mismatch = {};
  mismatch.rm_direction = REPLY;
  mismatch.rm_reply.rp_stat = MSG_DENIED;
  mismatch.rjcted_rply.rj_stat = RPC_MISMATCH;
  mismatch.rjcted_rply.rj_vers.low = mismatch.rjcted_rply.rj_vers.high = RPC_MSG_VERSION;
  sendReply(&transport_, &mismatch);
}

auth_stat call_t::authenticate(svc_req& request)
{
  const call_body& call = header_.rm_call;
  request.rq_prog = static_cast<u_int32_t>(call.cb_prog);
  request.rq_vers = static_cast<u_int32_t>(call.cb_vers);
  request.rq_proc = static_cast<u_int32_t>(call.cb_proc);
  request.rq_cred = call.cb_cred;
  request.rq_xprt = &transport_;
  if (call.cb_cred.oa_flavor == AUTH_NONE)
    return AUTH_OK;
  if (call.cb_cred.oa_flavor != AUTH_SYS)
    return AUTH_REJECTEDCRED;
  XDR xdrs = {};
  xdrmem_create(&xdrs, credential_, call.cb_cred.oa_length, XDR_DECODE);
  request.rq_clntcred = &names_;
  return xdr_authunix_parms(&xdrs, &names_) ? AUTH_OK : AUTH_BADCRED;
}

bool_t call_t::getArguments(SVCXPRT* transport, xdrproc_t routine, void* arguments)
{
  return routine(&of(transport).xdrs_, arguments);
}

bool_t call_t::freeArguments(SVCXPRT*, xdrproc_t routine, void* arguments)
{
  XDR xdrs = {};
  xdrs.x_op = XDR_FREE;
  return routine(&xdrs, arguments);
}

// A later reply takes the place of an earlier one.
bool_t call_t::sendReply(SVCXPRT* transport, rpc_msg* message)
{
  call_t& call = of(transport);
  message->rm_xid = call.header_.rm_xid;
  const u_long size = xdr_sizeof(reinterpret_cast<xdrproc_t>(xdr_replymsg), message);
  if (size == 0 || size > call.largestReply_)
    return FALSE;
  call.reply_.resize(size);
  XDR xdrs = {};
  xdrmem_create(&xdrs, call.reply_.data(), static_cast<u_int>(size), XDR_ENCODE);
  if (xdr_replymsg(&xdrs, message))
    return TRUE;
  call.reply_.clear();
  return FALSE;
}

void execute(const rpcService_t& service, svc_req& request, const rpcPeer_t& peer, const rpcAdmit_t& admit)
{
  if (request.rq_proc == NULLPROC) {
    const caller_scope anybody(nullptr);
    return service.dispatch(&request, request.rq_xprt);
  }
  const std::optional<caller> who = admit(peer, request);
  if (!who)
    return svcerr_weakauth(request.rq_xprt);
  const caller_scope inTheirName(&*who);
  service.dispatch(&request, request.rq_xprt);
}

}  // namespace

std::string rpcAnswer(const rpcService_t& service, std::span<char> message, const rpcPeer_t& peer,
                      const rpcAdmit_t& admit, size_t largestReply)
{
  call_t call(message, peer, largestReply);
  svc_req request = {};
  if (!call.decodeHeader())
    call.refuseHeader();
  else if (const auth_stat why = call.authenticate(request); why != AUTH_OK)
    svcerr_auth(call.transport(), why);
  else if (request.rq_prog != service.program)
    svcerr_noprog(call.transport());
  else if (request.rq_vers != service.version)
    svcerr_progvers(call.transport(), service.version, service.version);
  else
    execute(service, request, peer, admit);
  return std::move(call.reply());
}
