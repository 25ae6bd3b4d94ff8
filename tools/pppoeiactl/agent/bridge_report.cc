#include "tools/pppoeiactl/agent/bridge_report.h"

#include <charconv>
#include <optional>
#include <string_view>

namespace {

// Takes what is expected off the front of a text; once something else stands there, nothing more.
class text_reader {
public:
  explicit text_reader(std::string_view text) : rest_(text) {}

  bool good() const { return good_; }
  bool ended() const { return rest_.empty(); }

  void literal(std::string_view text)
  {
    good_ = good_ && rest_.starts_with(text);
    if (good_)
      rest_.remove_prefix(text.size());
  }

  uint32_t number()
  {
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
    good_ = good_ && error == std::errc{};
    if (good_)
      rest_.remove_prefix(static_cast<size_t>(end - rest_.data()));
    return value;
  }

  // A text of at most `most` characters up to the first `end`, which is taken too.
  std::string text(size_t most, std::string_view end)
  {
    const size_t length = rest_.find(end);
    good_ = good_ && length != std::string_view::npos && length <= most;
    if (!good_)
      return {};
    std::string value(rest_.substr(0, length));
    rest_.remove_prefix(length + end.size());
    return value;
  }

private:
  std::string_view rest_;
  bool good_ = true;
};

constexpr size_t device_max = 16;
constexpr size_t port_name_max = 14;
constexpr size_t serial_max = 12;
constexpr size_t mac_length = 17;
constexpr size_t vlan_name_max = 31;
constexpr std::string_view port_head = " \tPort Id: ";

void port_read(std::string_view line, bridge_report& into)
{
  text_reader reader(line);
  reader.literal(port_head);
  const uint32_t id = reader.number();
  reader.literal(", dev name: '");
  reported_port port;
  port.device = reader.text(device_max, "', port_name: '");
  text_reader cpe = reader;
  port.name = reader.text(port_name_max, "': \n");
  if (reader.good()) {
    into.ports[id] = port;
    return;
  }
  port.name = cpe.text(port_name_max, "', CPE serial: ");
  port.cpe_serial = cpe.text(serial_max, "', CPE MAC: ");
  port.cpe_mac = cpe.text(mac_length, "\n");
  if (cpe.good())
    into.ports[id] = port;
}

// Each VLAN's text is ended by the number of the one before, which is known.
void vlans_read(std::string_view section, bridge_report& into)
{
  text_reader reader(section);
  std::string before = "/";
  while (!reader.ended()) {
    reader.literal("\tVlan: ");
    const uint32_t id = reader.number();
    reader.literal(", name: '");
    const std::string name = reader.text(vlan_name_max, "', prev: " + before + ", next: ");
    reader.text(mac_length, "\n");
    if (!reader.good())
      return;
    into.vlans[static_cast<uint16_t>(id)] = name;
    before = std::to_string(id);
  }
}

}  // namespace

bridge_report bridge_report_parse(const std::string& text)
{
  constexpr std::string_view vlan_head = "\n vlan data:\n";
  bridge_report report;
  const size_t vlans = text.rfind(vlan_head);
  const std::string_view ports = std::string_view(text).substr(0, vlans == std::string::npos ? vlans : vlans + 1);
  for (size_t at = ports.find(port_head); at != std::string_view::npos; at = ports.find(port_head, at + 1))
    if (at > 0 && ports[at - 1] == '\n')
      port_read(ports.substr(at), report);
  if (vlans != std::string::npos)
    vlans_read(std::string_view(text).substr(vlans + vlan_head.size()), report);
  return report;
}

std::string report_taken(const report_terminal& terminal)
{
  std::string text = terminal.take();
  if (text.empty())
    throw command_error(exit_refused, "the agent wrote no report: its log says why");
  return text;
}

std::string report_of(const context& context, const api::operation& operation, words inputs)
{
  report_terminal terminal;
  inputs.push_back(terminal.path());  // in all of them the last argument
  context.demand(operation, inputs);
  return report_taken(terminal);
}

bridge_report bridge_report_read(const context& context, const std::string& bridge)
{
  return bridge_report_parse(report_of(context, row("pppoeia_dump"), {bridge, "0"}));
}
