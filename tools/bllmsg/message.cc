#include "tools/bllmsg/message.h"

#include "rte/BLL/core/rpc_bll_service.h"

#include <memory>

namespace {

struct client_destroy {
  void operator()(CLIENT* client) const
  {
    if (client->cl_auth)
      auth_destroy(client->cl_auth);
    clnt_destroy(client);
  }
};
using client_ptr = std::unique_ptr<CLIENT, client_destroy>;

std::string without_newline(std::string text)
{
  while (!text.empty() && text.back() == '\n')
    text.pop_back();
  return text;
}

timeval time_from(double seconds)
{
  const auto whole = static_cast<time_t>(seconds);
  return {whole, static_cast<suseconds_t>((seconds - static_cast<double>(whole)) * 1'000'000)};
}

bool service_is_absent(clnt_stat status)
{
  return status == RPC_TIMEDOUT || status == RPC_CANTSEND || status == RPC_CANTRECV;
}

// Why the call has failed.
std::string reason_of(CLIENT* client)
{
  rpc_err error = {};
  clnt_geterr(client, &error);
  if (error.re_status == RPC_AUTHERROR && error.re_why == AUTH_TOOWEAK)
    return "not allowed: the service serves root, its own user and those of bllhost --allow-user";
  return without_newline(clnt_sperror(client, "not delivered"));
}

}  // namespace

delivery_result message_send(transport transport, double seconds, const std::string& message, const std::string& value,
                             const std::string& tty)
{
  const timeval limit = time_from(seconds);
  const client_ptr client(clnt_create_timed("127.0.0.1", bllRpcProgram, bllRpcVersion,
                                            transport == transport::udp ? "udp" : "tcp", &limit));
  if (!client)
    return {delivery::no_service, without_newline(clnt_spcreateerror("no service"))};

  std::string texts[] = {message, value, tty};
  bllRpcMessage_t arguments{texts[0].data(), texts[1].data(), texts[2].data()};
  enum_t undelivered = 0;
  const clnt_stat status = clnt_call(client.get(), bllRpcSendMessage, reinterpret_cast<xdrproc_t>(xdrBllRpcMessage),
                                     reinterpret_cast<char*>(&arguments), reinterpret_cast<xdrproc_t>(xdr_enum),
                                     reinterpret_cast<char*>(&undelivered), limit);
  if (status != RPC_SUCCESS)
    return {service_is_absent(status) ? delivery::no_service : delivery::refused, reason_of(client.get())};
  if (undelivered)
    return {delivery::refused, "the service could not write its reply to " + tty};
  return {delivery::delivered, {}};
}
