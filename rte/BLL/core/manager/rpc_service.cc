#include "rte/BLL/core/rpc_bll_service.h"

#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/log/log_line.h"
#include "rte/BLL/core/rpc_register.h"
#include <cstdio>
#include <stdexcept>

namespace {

xdrproc_t asXdrProc(bool_t (*routine)(XDR*, bllRpcMessage_t*))
{
  return reinterpret_cast<xdrproc_t>(routine);
}

std::string textFrom(const char* text)
{
  if (!text)
    throw std::logic_error("an operator's message with a null text");
  return text;
}

// A reply without results.
bool_t nothing(XDR*, ...)
{
  return TRUE;
}

// Null after an exception, which the caller of the service learns as SYSTEM_ERR.
const enum_t* resultOf(const bllRpcMessage_t& arguments, svc_req* request)
{
  try {
    return rpc_send_message_to_bll_1_svc(arguments.message, arguments.value, arguments.terminal, request);
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (const boost::thread_interrupted&) {
    throw;
  } catch (const std::exception& error) {
    logAt(LogImpl::critical) << "Operator's message " << arguments.message << " has thrown: " << error.what() << "\n";
  } catch (...) {
    logAt(LogImpl::critical) << "Operator's message " << arguments.message << " has thrown.\n";
  }
  return nullptr;
}

// The decoded arguments of one request, freed at the end of the scope, also when the thread is stopped meanwhile.
class decoded_t {
public:
  explicit decoded_t(SVCXPRT* transport)
      : transport_(transport), complete_(svc_getargs(transport, asXdrProc(xdrBllRpcMessage), &arguments))
  {}
  ~decoded_t()
  {
    // What has been decoded before it failed is freed too.
    if (!svc_freeargs(transport_, asXdrProc(xdrBllRpcMessage), &arguments) && complete_)
      std::fprintf(stderr, "unable to free arguments");
  }
  decoded_t(const decoded_t&) = delete;
  decoded_t& operator=(const decoded_t&) = delete;
  bool complete() const { return complete_; }

  bllRpcMessage_t arguments;

private:
  SVCXPRT* transport_;
  bool complete_;
};

void sendMessage(svc_req* request, SVCXPRT* transport)
{
  const decoded_t decoded(transport);
  if (!decoded.complete())
    return svcerr_decode(transport);
  const enum_t* const result = resultOf(decoded.arguments, request);
  if (!result || !svc_sendreply(transport, reinterpret_cast<xdrproc_t>(xdr_enum), const_cast<enum_t*>(result)))
    svcerr_systemerr(transport);
}

}  // namespace

bool_t xdrBllRpcMessage(XDR* xdrs, bllRpcMessage_t* arguments)
{
  return xdr_string(xdrs, &arguments->message, bllRpcLongestText) &&
         xdr_string(xdrs, &arguments->value, bllRpcLongestText) &&
         xdr_string(xdrs, &arguments->terminal, bllRpcLongestText);
}

void* rpcBllmanagerStart(void*)
{
  rpcProxyRegisterSvc(bllRpcProgram, bllRpcVersion, bllRpcDispatch);
  return nullptr;
}

enum_t* rpc_send_message_to_bll_1_svc(char* message, char* value, char* terminal, svc_req*)
{
  static enum_t result;
  result =
      singleton<BLLManager>::instance().postExternalMessage(textFrom(message), textFrom(value), textFrom(terminal));
  return &result;
}

void bllRpcDispatch(svc_req* request, SVCXPRT* transport)
{
  switch (request->rq_proc) {
  case NULLPROC:
    if (!svc_sendreply(transport, nothing, nullptr))
      svcerr_systemerr(transport);
    return;
  case bllRpcSendMessage:
    return sendMessage(request, transport);
  default:
    svcerr_noproc(transport);
  }
}
