
#include "pppoeia/frame/parse.h"
#include "pppoeia/status/bridge_status.h"
#include "pppoeia/status/json.h"
#include "pppoeia/status/reports.h"

#include <algorithm>

namespace {

// The subscriber's address: whose it is of the two, the code tells.
uint64_t client_of(const watched_frame& frame)
{
  const const_bytes bytes_before{reinterpret_cast<const unsigned char*>(frame.before.data()), frame.before.size()};
  const bool from_server = frame.code == pppoe::pado || frame.code == pppoe::pads;
  return be48_at(bytes_before, from_server ? 0 : 6);
}

std::string_view class_name(fate_class of)
{
  switch (of) {
  case fate_class::accepted:
    return "accepted";
  case fate_class::untouched:
    return "untouched";
  case fate_class::dropped:
    return "dropped";
  }
  return {};
}

class watch {
public:
  explicit watch(std::shared_ptr<bridge_status> bridge) : bridge_(std::move(bridge)), at_(bridge_->monitor.watch()) {}
  ~watch()
  {
    if (bridge_)
      bridge_->monitor.unwatch();
  }
  watch(watch&&) = default;
  watch& operator=(watch&& other) noexcept
  {
    std::swap(bridge_, other.bridge_);
    std::swap(at_, other.at_);
    return *this;
  }

  bool next(watched_frame& frame, uint64_t& lost) { return bridge_->monitor.read(at_, frame, lost); }
  const bridge_status* bridge() const { return bridge_.get(); }
  bool is_of(const std::shared_ptr<bridge_status>& bridge) const { return bridge == bridge_; }

private:
  std::shared_ptr<bridge_status> bridge_;
  monitor_ring::place at_;
};

class monitor_body : public http_body {
public:
  explicit monitor_body(filter wanted) : wanted_(std::move(wanted)) { follow_bridges(); }

  bool is_endless() const override { return true; }

  // What has come to one bridge, as far as it goes into a part.
  more next(std::string& to) override
  {
    constexpr size_t part = 64 * 1024;
    follow_bridges();
    const size_t begin = to.size();
    uint64_t lost = 0;
    for (watch& each : watches_)
      for (watched_frame frame; to.size() - begin < part && each.next(frame, lost);)
        if (wants(frame))
          write(to, each.bridge()->name(), frame);
    if (lost > 0) {
      json_object(to).number("lost", lost);
      to += '\n';
    }
    return to.size() - begin < part ? more::later : more::yes;
  }

private:
  // Bridges come and go.
  void follow_bridges()
  {
    auto present = bridge_statuses::all();
    std::erase_if(present, [this](const auto& bridge) { return !wanted_.wants(bridge->name()); });
    std::erase_if(watches_, [&](const watch& each) {
      return std::ranges::none_of(present, [&](const auto& bridge) { return each.is_of(bridge); });
    });
    for (const auto& bridge : present)
      if (std::ranges::none_of(watches_, [&](const watch& each) { return each.is_of(bridge); }))
        watches_.emplace_back(bridge);
  }

  bool wants(const watched_frame& frame) const
  {
    return wanted_.wants(frame.port, client_of(frame)) && (!wanted_.code || *wanted_.code == frame.code) &&
           (!wanted_.dropped_only || class_of(frame.what) == fate_class::dropped);
  }

  void write(std::string& text, const std::string& bridge, const watched_frame& frame) const
  {
    {
      json_object to(text);
      to.number("time_ns", clock_.ns(frame.at_ns));
      to.text("time", clock_.text(frame.at_ns));
      to.text("bridge", bridge);
      to.number("port", frame.port);
      to.number("vlan", frame.vid);
      to.text("code", frame.code ? code_text(frame.code) : "");
      to.text("client", mac_text(client_of(frame)));
      to.text("fate", words_of(frame.what).name);
      to.text("class", class_name(class_of(frame.what)));
      to.text("meaning", words_of(frame.what).text);
      to.number("length_before", frame.length_before);
      to.number("length_after", frame.length_after);
      to.text("before", hex_text(frame.before));
      to.text("after", hex_text(frame.after));
    }
    text += '\n';
  }

  filter wanted_;
  std::vector<watch> watches_;
  wall_clock clock_;
};

}  // namespace

std::unique_ptr<http_body> monitor_report(const filter& wanted)
{
  return std::make_unique<monitor_body>(wanted);
}
