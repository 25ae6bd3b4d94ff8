#include "tests/support/api_fixture.h"

#include "platform/ippc/dispatch.h"
#include "pppoeia/log.h"
#include "pppoeia/operations/dispatcher.h"
#include "pppoeia/pppoeia.h"
#include "pppoeia/records.h"
#include "tests/support/syslog_capture.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

namespace {

// The worker's first lines come when its thread gets to run; a test that compares the log must not meet them.
void worker_started_wait()
{
  const auto tells_of_priority = [](const syslog_line& line) { return line.text.find("riority") != std::string::npos; };
  for (int tries = 0; tries < 5000; ++tries) {
    if (std::ranges::any_of(syslog_take(), tells_of_priority))
      return;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace

api_fixture::api_fixture()
{
  const int level = pppoeia_log_level;
  pppoeia_log_level = log_debug;
  pppoeia_init();
  pppoeia_bridge_add("br0", 8);
  worker_started_wait();
  pppoeia_log_level = level;
  syslog_take();
}

api_fixture::~api_fixture()
{
  pppoeia_log_level = log_info;
  if (pppoeia_globals.load())
    pppoeia_fini();
  syslog_take();
}

void api_fixture::port_add(uint32_t id, const char* type, uint32_t kind, uint32_t parent)
{
  pppoeia_port_info info{};
  info.parent_id = parent;
  info.kind = kind;
  std::strncpy(info.type, type, sizeof info.type - 1);
  const std::string number = std::to_string(id);
  pppoeia_port_add("br0", id, ("dev" + number).c_str(), ("port" + number).c_str(), &info);
}

api_call& api_call::bytes(std::string raw)
{
  arguments.push_back(std::move(raw));
  return *this;
}

int32_t api_call::run()
{
  static ippc::dispatch& dispatch = *new ippc::dispatch(pppoeia_ippc_dispatcher);
  std::vector<const_bytes> views;
  for (const std::string& argument : arguments)
    views.emplace_back(reinterpret_cast<const unsigned char*>(argument.data()), argument.size());
  std::vector<unsigned char> packet;
  ippc::request_encode(id, 7, views, packet);
  const auto reply = ippc::reply_decode(dispatch.run(packet));
  status = reply->status;
  result = reply->result;
  has_result = reply->has_result;
  for (size_t i = 0; i < reply->arguments.size(); ++i)
    arguments[i].assign(reply->arguments[i].begin(), reply->arguments[i].end());
  return result;
}
