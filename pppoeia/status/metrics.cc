#include "pppoeia/status/reports.h"

#include "pppoeia/status/bridge_status.h"

#include <charconv>
#include <chrono>
#include <cstdio>

namespace {

using bridges = std::vector<std::shared_ptr<bridge_status>>;

constexpr std::string_view code_names[code_count] = {"padi", "pado", "padr", "pads", "padt", "other"};

// One figure of a port: the fates that count for it, and the label's value where the family has several.
struct row {
  std::string_view label;  // empty: none
  uint64_t (*of)(const port_figures& port);
};

template <fate What>
uint64_t count_of(const port_figures& port)
{
  return port.fates[static_cast<size_t>(What)].get();
}

template <size_t Code>
uint64_t code_of(const port_figures& port)
{
  return port.codes[Code].get();
}

template <fate What>
constexpr row fate_row()
{
  return {words_of(What).name, count_of<What>};
}

constexpr row accepted[] = {{code_names[0], code_of<0>}, {code_names[1], code_of<1>}, {code_names[2], code_of<2>},
                            {code_names[3], code_of<3>}, {code_names[4], code_of<4>}, {code_names[5], code_of<5>}};
constexpr row inserted[] = {{"", count_of<fate::tag_inserted>}};
constexpr row replaced[] = {{"", count_of<fate::tag_replaced>}};
constexpr row removed[] = {{"", count_of<fate::tag_removed>}};
constexpr row kept[] = {{"", count_of<fate::tag_kept>}};
constexpr row answered[] = {{"", count_of<fate::error_answered>}};
constexpr row beyond_mtu[] = {{"", [](const port_figures& port) {
                                 return count_of<fate::error_answered>(port) + count_of<fate::no_own_address>(port);
                               }}};
constexpr row untouched[] = {fate_row<fate::bridge_off>(), fate_row<fate::vlan_not_enabled>(),
                             fate_row<fate::port_disabled>()};
constexpr row dropped[] = {fate_row<fate::record_length>(),  fate_row<fate::unknown_port>(),
                           fate_row<fate::not_discovery>(),  fate_row<fate::payload_past_end>(),
                           fate_row<fate::role>(),           fate_row<fate::tag_untrusted>(),
                           fate_row<fate::removal_misfit>(), fate_row<fate::insertion_misfit>(),
                           fate_row<fate::no_own_address>()};

// Counters that stand for each bridge and for each port.
struct family {
  std::string_view name;  // behind "pppoeia_bridge_" or "pppoeia_port_"
  std::string_view label;
  std::span<const row> rows;
  std::string_view help;
};

constexpr family families[] = {
    {"accepted_packets", "code", accepted, "Discovery frames under the agent's rules, by their code."},
    {"vendor_specific_tag_inserted_packets_to_server", "", inserted,
     "PADI and PADR with the line's vendor tag put in."},
    {"vendor_specific_tag_replaced_packets_to_server", "", replaced,
     "PADI and PADR with the line's vendor tag in the place of another."},
    {"vendor_specific_tag_removed_packets_to_client", "", removed, "PADO and PADS with the vendor tag taken out."},
    {"vendor_specific_tag_kept_packets_to_client", "", kept, "PADO and PADS whose vendor tag the bridge keeps."},
    {"outgoing_mtu_exceeded_packets_from_client", "", beyond_mtu, "PADI and PADR too large with the vendor tag."},
    {"error_answer_packets_to_client", "", answered, "Error answers made for frames too large with the vendor tag."},
    {"untouched_packets", "reason", untouched, "Frames sent on as they came, outside the agent's rules."},
    {"dropped_packets", "reason", dropped, "Frames dropped, by reason."},
};

class writer {
public:
  explicit writer(metrics_style style) : style_(style) {}

  void head(std::string_view name, std::string_view type, std::string_view help, std::string_view unit = {})
  {
    const bool suffix = type == "counter" && style_ == metrics_style::prometheus;
    const std::string whole = std::string(name) + (suffix ? "_total" : "");
    text_ += "# HELP " + whole + " " + std::string(help) + "\n# TYPE " + whole + " " + std::string(type) + "\n";
    if (!unit.empty() && style_ == metrics_style::openmetrics)
      text_ += "# UNIT " + whole + " " + std::string(unit) + "\n";
  }

  // `labels` without braces, may be empty.
  void sample(std::string_view name, std::string_view labels, uint64_t value)
  {
    begin(name, labels);
    number(value);
    text_ += '\n';
  }
  void sample_seconds(std::string_view name, std::string_view labels, uint64_t ns)
  {
    begin(name, labels);
    char digits[32];
    text_.append(digits,
                 static_cast<size_t>(std::snprintf(digits, sizeof digits, "%.9f\n", static_cast<double>(ns) / 1e9)));
  }

  std::string end()
  {
    text_ += "# EOF\n";
    return std::move(text_);
  }

private:
  void begin(std::string_view name, std::string_view labels)
  {
    text_ += name;
    if (!labels.empty())
      ((text_ += '{') += labels) += '}';
    text_ += ' ';
  }
  void number(uint64_t value)
  {
    char digits[20];
    text_.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
  }

  metrics_style style_;
  std::string text_;
};

// Names of bridges come from requests: any bytes.
std::string label_value(std::string_view text)
{
  std::string escaped;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    char hex[8];
    if (c == '"' || c == '\\')
      (escaped += '\\') += c;
    else if (byte < 0x20 || byte > 0x7e)
      escaped.append(hex, static_cast<size_t>(std::snprintf(hex, sizeof hex, "\\\\x%02x", byte)));
    else
      escaped += c;
  }
  return escaped;
}

std::string label_of(const bridge_status& bridge)
{
  return "bridge=\"" + label_value(bridge.name()) + "\"";
}

std::string labelled(const std::string& labels, std::string_view name, std::string_view value)
{
  return value.empty() ? labels : labels + "," + std::string(name) + "=\"" + std::string(value) + "\"";
}

uint64_t sum_of(const bridge_status& bridge, const row& row)
{
  uint64_t sum = 0;
  for (uint32_t port = 0; port <= bridge.ports(); ++port)
    sum += row.of(bridge.port(port));
  return sum;
}

void write_of_bridges(writer& out, const family& family, const bridges& all)
{
  const std::string name = "pppoeia_bridge_" + std::string(family.name);
  out.head(name, "counter", family.help);
  for (const auto& bridge : all)
    for (const row& row : family.rows)
      out.sample(name + "_total", labelled(label_of(*bridge), family.label, row.label), sum_of(*bridge, row));
}

void write_of_ports(writer& out, const family& family, const bridges& all)
{
  const std::string name = "pppoeia_port_" + std::string(family.name);
  const std::string sample = name + "_total";
  out.head(name, "counter", family.help);
  for (const auto& bridge : all)
    for (uint32_t port = 1; port <= bridge->ports(); ++port)
      for (const row& row : family.rows)
        if (const uint64_t value = row.of(bridge->port(port)))
          out.sample(sample,
                     labelled(label_of(*bridge) + ",port=\"" + std::to_string(port) + "\"", family.label, row.label),
                     value);
}

// Figures of a bridge as a whole.
struct bridge_row {
  std::string_view name;
  std::string_view type;
  std::string_view help;
  uint64_t (*of)(const bridge_status& bridge);
};

constexpr bridge_row bridge_rows[] = {
    {"pppoeia_bridge_records", "counter", "Records that the kernel bridge diverted to the agent.",
     [](const bridge_status& bridge) { return bridge.records.get(); }},
    {"pppoeia_bridge_batches", "counter", "Times that records were taken, one or several at once.",
     [](const bridge_status& bridge) { return bridge.batches.get(); }},
    {"pppoeia_bridge_send_failures", "counter", "Frames that the pseudo device did not take.",
     [](const bridge_status& bridge) { return bridge.send_failures.get(); }},
    {"pppoeia_bridge_lost_records", "counter", "Records lost in front of the agent, since its socket had no room.",
     [](const bridge_status& bridge) { return bridge.lost.get(); }},
    {"pppoeia_bridge_replaced_lines", "counter", "Lines that left the line table to make room.",
     [](const bridge_status& bridge) { return bridge.lines.replaced().get(); }},
    {"pppoeia_bridge_unlearned_packets", "counter", "Frames of clients that found no room in the line table.",
     [](const bridge_status& bridge) { return bridge.lines.unlearned().get(); }},
    {"pppoeia_bridge_queue_depth", "gauge", "Records that waited in the receive ring, once a second.",
     [](const bridge_status& bridge) { return uint64_t{bridge.queue_depth.get()}; }},
};

void write_lines(writer& out, const bridges& all)
{
  constexpr std::string_view name = "pppoeia_bridge_lines";
  out.head(name, "gauge", "Clients in the line table, by how far their dial-in has come.");
  for (const auto& bridge : all)
    for (size_t state = 0; state < line_state_count; ++state)
      out.sample(name, labelled(label_of(*bridge), "state", line_state_names[state]),
                 bridge->lines.count(static_cast<line_state>(state)));
}

void write_path_times(writer& out, const bridges& all)
{
  constexpr std::string_view name = "pppoeia_bridge_frame_path_seconds";
  out.head(name, "histogram", "Time in the frame path, of one frame in 64.", "seconds");
  for (const auto& bridge : all) {
    const std::string label = label_of(*bridge);
    uint64_t count = 0;
    for (size_t i = 0; i < std::size(path_times::bounds_ns); ++i) {
      char bound[32];
      std::snprintf(bound, sizeof bound, "%g", static_cast<double>(path_times::bounds_ns[i]) / 1e9);
      count += bridge->path.buckets[i].get();
      out.sample(std::string(name) + "_bucket", labelled(label, "le", bound), count);
    }
    count += bridge->path.buckets[std::size(path_times::bounds_ns)].get();
    out.sample(std::string(name) + "_bucket", labelled(label, "le", "+Inf"), count);
    out.sample_seconds(std::string(name) + "_sum", label, bridge->path.sum_ns.get());
    out.sample(std::string(name) + "_count", label, count);
  }
}

}  // namespace

std::string metrics_text(metrics_style style)
{
  const bridges all = bridge_statuses::all();
  writer out(style);
  out.head("pppoeia_bridges", "gauge", "Bridges that the agent serves.");
  out.sample("pppoeia_bridges", "", all.size());
  for (const bridge_row& row : bridge_rows) {
    out.head(row.name, row.type, row.help);
    const std::string sample = std::string(row.name) + (row.type == "counter" ? "_total" : "");
    for (const auto& bridge : all)
      out.sample(sample, label_of(*bridge), row.of(*bridge));
  }
  for (const family& family : families)
    write_of_bridges(out, family, all);
  for (const family& family : families)
    write_of_ports(out, family, all);
  write_lines(out, all);
  write_path_times(out, all);
  return out.end();
}
