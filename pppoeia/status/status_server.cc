#include "pppoeia/status/status_server.h"

#include "base/ending_signals.h"
#include "pppoeia/log.h"
#include "pppoeia/status/bridge_status.h"
#include "pppoeia/status/drop_alarm.h"
#include "pppoeia/status/http_server.h"
#include "pppoeia/status/options.h"
#include "pppoeia/status/reports.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <system_error>
#include <thread>

namespace {

using namespace std::chrono_literals;

constexpr char default_path[] = "/run/pppoeia/status";

http_answer metrics_answer(const http_request& request)
{
  if (request.wants_openmetrics)
    return {.content_type = "application/openmetrics-text; version=1.0.0; charset=utf-8",
            .text = metrics_text(metrics_style::openmetrics)};
  return {.content_type = "text/plain; version=0.0.4; charset=utf-8", .text = metrics_text(metrics_style::prometheus)};
}

// A worker comes by at least every 10 ms.
http_answer health_answer(const http_request&)
{
  constexpr uint64_t silence_most_ns = 5'000'000'000;
  const auto now = static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch() / 1ns);
  for (const auto& bridge : bridge_statuses::all())
    if (const uint64_t seen = bridge->alive_ns.get(); seen != 0 && seen + silence_most_ns < now)
      return {.status = 503};
  return {.text = "ok\n"};
}

constexpr char json[] = "application/json";

http_answer lines_answer(const http_request& request)
{
  const auto wanted = filter_read(request);
  if (!wanted)
    return {.status = 400};
  return {.content_type = json, .rest = lines_report(*wanted)};
}

http_answer drops_answer(const http_request& request)
{
  const auto wanted = filter_read(request);
  if (!wanted)
    return {.status = 400};
  return {.content_type = json, .text = drops_report(*wanted)};
}

http_answer monitor_answer(const http_request& request)
{
  const auto wanted = filter_read(request);
  if (!wanted)
    return {.status = 400};
  return {.content_type = "application/x-ndjson", .rest = monitor_report(*wanted)};
}

struct page {
  std::string_view path;
  http_answer (*answer)(const http_request& request);
};

constexpr page pages[] = {
    {"/metrics", metrics_answer}, {"/lines", lines_answer},    {"/drops", drops_answer},
    {"/monitor", monitor_answer}, {"/healthz", health_answer},
};

http_answer answer(const http_request& request)
{
  for (const page& page : pages)
    if (request.path == page.path)
      return page.answer(request);
  return {.status = 404};
}

void tell_without(const std::string& what)
{
  pppoeia_log(log_warning, "No status at '%s': %s.", what.c_str(), std::strerror(errno));
}

class status_server {
public:
  status_server() : http_(answer)
  {
    const char* path = std::getenv("PPPOEIA_STATUS_SOCKET");
    open(path ? path : default_path, std::getenv("PPPOEIA_STATUS_LISTEN"));
    const ending_signals_held held;
    thread_ = std::thread([this] { run(); });
  }
  ~status_server()
  {
    stop_ = true;
    http_.wake();
    thread_.join();
  }
  status_server(const status_server&) = delete;
  status_server& operator=(const status_server&) = delete;

private:
  void open(const std::string& path, const char* address)
  {
    if (path == default_path)
      mkdir("/run/pppoeia", 0755);  // where no service manager has made it
    if (!path.empty() && !http_.listen_at_path(path))
      tell_without(path);
    if (address && *address && !http_.listen_at_address(address))
      tell_without(address);
  }

  void run()
  {
    while (!stop_) {
      http_.serve(1s);
      alarm_.look(static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch() / 1s));
    }
  }

  http_server http_;
  drop_alarm alarm_{number_option("PPPOEIA_DROP_ALARM", 10, 0, UINT32_MAX)};
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

std::unique_ptr<status_server> running;

}  // namespace

void status_begin()
{
  if (!status_built)
    return;
  try {
    running = std::make_unique<status_server>();
  } catch (const std::exception& error) {  // no memory, no thread
    pppoeia_log(log_warning, "No status: %s.", error.what());
  }
}

void status_end()
{
  running.reset();
}
