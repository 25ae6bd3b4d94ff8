#include "pppoeia/status/reports.h"

#include "pppoeia/frame/parse.h"
#include "pppoeia/status/bridge_status.h"
#include "pppoeia/status/json.h"

#include <algorithm>
#include <chrono>
#include <ctime>

namespace {

using bridge_list = std::vector<std::shared_ptr<bridge_status>>;

template <typename Clock>
int64_t ns_now()
{
  return Clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

std::string_view error_name(uint16_t tag)
{
  if (tag == pppoe::tag_service_error)
    return "Service-Name-Error";
  return tag == pppoe::tag_system_error ? "AC-System-Error" : "Generic-Error";
}

// Sub-options of the vendor tag's value; the agent wrote it.
void identifiers_write(json_object& to, std::string_view value)
{
  constexpr size_t header = 2;
  std::string_view rest = value.substr(std::min(value.size(), sizeof pppoe::vendor_id));
  while (rest.size() >= header) {
    const std::string_view id = rest.substr(header, static_cast<unsigned char>(rest[1]));
    to.text(rest[0] == pppoe::agent_circuit_id ? "circuit_id" : "remote_id", id);
    rest.remove_prefix(header + id.size());
  }
}

void times_write(json_object& to, const line_view& line, const wall_clock& clock)
{
  to.text("last_seen", clock.text(line.seen_ns));
  if (line.first_padi_ns)
    to.text("first_padi", clock.text(line.first_padi_ns));
  if (line.pads_ns)
    to.text("pads", clock.text(line.pads_ns));
  if (line.padt_ns) {
    to.text("padt", clock.text(line.padt_ns));
    to.text("padt_from", line.ended_by_client ? "client" : "server");
  }
  if (line.setup_ns)
    to.number("setup_us", line.setup_ns / 1000);
}

void line_write(std::string& text, const std::string& bridge, const line_view& line, const wall_clock& clock)
{
  json_object to(text);
  to.text("bridge", bridge);
  to.number("port", line.port);
  to.number("vlan", line.vid);
  to.text("client", mac_text(line.client));
  to.text("state", line_state_names[static_cast<size_t>(line.state)]);
  if (line.server)
    to.text("server", mac_text(line.server));
  to.text("ac_name", line.ac_name);
  to.text("service_name", line.service_name);
  if (line.session_id)
    to.number("session_id", line.session_id);
  to.number("retries", line.retries);
  times_write(to, line, clock);
  if (line.error) {
    to.text("error", error_name(line.error));
    to.text("error_text", line.error_text);
  }
  to.number("drops", line.drops);
  if (line.drops)
    to.text("last_drop", words_of(line.last_drop).name);
  identifiers_write(to, line.vendor_tag);
}

class lines_body : public http_body {
public:
  explicit lines_body(filter wanted) : wanted_(std::move(wanted)), bridges_(bridge_statuses::all())
  {
    std::erase_if(bridges_, [this](const auto& bridge) { return !wanted_.wants(bridge->name()); });
  }

  more next(std::string& to) override
  {
    constexpr size_t looks = 4096;
    if (!begun_)
      to += "{\"lines\":[";
    begun_ = true;
    for (size_t look = 0; look < looks && bridge_ < bridges_.size(); ++look)
      write_next(to);
    if (bridge_ < bridges_.size())
      return more::yes;
    to += "\n]}\n";
    return more::no;
  }

private:
  void write_next(std::string& to)
  {
    const bridge_status& bridge = *bridges_[bridge_];
    if (slot_ == bridge.lines.slots()) {
      ++bridge_;
      slot_ = 0;
      return;
    }
    line_view line;
    if (!bridge.lines.read(slot_++, line) || !wanted_.wants(line.port, line.client))
      return;
    to += any_ ? ",\n" : "\n";
    any_ = true;
    line_write(to, bridge.name(), line, clock_);
  }

  filter wanted_;
  bridge_list bridges_;
  wall_clock clock_;
  size_t bridge_ = 0;
  size_t slot_ = 0;
  bool begun_ = false;
  bool any_ = false;
};

struct dropped_on {
  const bridge_status* bridge;
  dropped_frame frame;
};

void drop_write(std::string& text, const dropped_on& drop, const wall_clock& clock)
{
  json_object to(text);
  to.text("time", clock.text(drop.frame.at_ns));
  to.text("bridge", drop.bridge->name());
  to.number("port", drop.frame.port);
  to.number("vlan", drop.frame.vid);
  to.text("client", mac_text(drop.frame.client));
  to.text("code", drop.frame.code ? code_text(drop.frame.code) : "");
  to.text("reason", words_of(drop.frame.why).name);
  to.text("meaning", words_of(drop.frame.why).text);
  to.number("length", drop.frame.length);
  to.text("bytes", hex_text(drop.frame.begin));
}

}  // namespace

wall_clock::wall_clock() : ahead_ns_(ns_now<std::chrono::system_clock>() - ns_now<std::chrono::steady_clock>()) {}

std::string wall_clock::text(uint64_t steady_ns) const
{
  const int64_t ms = (static_cast<int64_t>(steady_ns) + ahead_ns_) / 1'000'000;
  const time_t seconds = ms / 1000;
  tm parts{};
  gmtime_r(&seconds, &parts);
  char text[80];
  const size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(text + length, sizeof text - length, ".%03dZ", static_cast<int>(ms % 1000));
  return text;
}

std::unique_ptr<http_body> lines_report(const filter& wanted)
{
  return std::make_unique<lines_body>(wanted);
}

std::string drops_report(const filter& wanted)
{
  const bridge_list bridges = bridge_statuses::all();
  std::vector<dropped_on> drops;
  for (const auto& bridge : bridges)
    if (wanted.wants(bridge->name()))
      for (dropped_frame& frame : bridge->drops.all())
        if (wanted.wants(frame.port, frame.client) && (!wanted.code || *wanted.code == frame.code))
          drops.push_back({bridge.get(), std::move(frame)});
  std::ranges::stable_sort(drops, {}, [](const dropped_on& drop) { return drop.frame.at_ns; });
  const size_t first = drops.size() > drop_list::most ? drops.size() - drop_list::most : 0;
  const wall_clock clock;
  std::string text = "{\"drops\":[";
  for (size_t i = first; i < drops.size(); ++i) {
    text += i > first ? ",\n" : "\n";
    drop_write(text, drops[i], clock);
  }
  return text + "\n]}\n";
}
