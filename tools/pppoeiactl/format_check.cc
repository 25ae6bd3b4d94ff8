#include "tools/pppoeiactl/format_check.h"

#include "tools/pppoeiactl/discovery.h"
#include "tools/pppoeiactl/line_view.h"
#include "tools/pppoeiactl/report.h"

#include <algorithm>
#include <cstdio>
#include <set>
#include <string>

namespace {

constexpr int64_t state_network = 2;

struct line_key {
  uint32_t port;
  uint16_t vlan;
};

struct finding {
  const char* what;        // "shared", "cut", "zero-byte", "empty", "no-value"
  const char* identifier;  // "circuit-id" or "remote-id"
  std::string text;        // of the identifier
  std::string macro;       // of "no-value"
  std::vector<line_key> lines;
};

std::string line_text(const line_key& line)
{
  return "port " + std::to_string(line.port) +
         (line.vlan == no_vlan ? " without VLAN" : " VLAN " + std::to_string(line.vlan));
}

std::string sentence(const finding& found)
{
  const std::string id = std::string(found.identifier) + " '" + printable(found.text) + "'";
  if (!found.macro.empty())
    return std::string(found.identifier) + ": $" + found.macro + " has no value";
  const std::string_view what = found.what;
  if (what == "shared")
    return id + " is shared";
  if (what == "cut")
    return id + " is cut at 63";
  if (what == "zero-byte")
    return id + " holds a zero byte, where some servers end it";
  return std::string(found.identifier) + " is empty";
}

// All lines of one bridge, and what was found on them.
class check {
public:
  check(const context& context, const std::string& bridge) : context_(context), bridge_(bridge), lines_(context, bridge)
  {}

  void run()
  {
    for (const uint32_t port : ports_of(context_, bridge_)) {
      if (is_network(port))
        continue;
      look(port, no_vlan);
      for (const pppoeia_port_vlan_entry& entry : port_vlans_of(context_, bridge_, port))
        look(port, static_cast<uint16_t>(entry.vlan_id));
    }
    shared_find("circuit-id", circuit_ids_);
    shared_find("remote-id", remote_ids_);
  }

  size_t line_count() const { return line_count_; }
  const std::vector<finding>& findings() const { return findings_; }

private:
  // Identifiers by their bytes, and who has them.
  struct owners {
    std::string text;
    std::vector<line_key> lines;
  };
  using owners_by_bytes = std::map<std::string, owners>;

  bool is_network(uint32_t port) const
  {
    const api::operation& operation = row("pppoeia_port_state_get");
    const agent_client::answer answer = context_.demand(operation, {bridge_, std::to_string(port)});
    return agent_client::number_of(operation.arguments().back(), answer.buffers.back()) == state_network;
  }

  void look(uint32_t port, uint16_t vlan)
  {
    ++line_count_;
    const line_view line = lines_.view(port, vlan);
    look("circuit-id", line.circuit_id, {port, vlan}, circuit_ids_);
    look("remote-id", line.remote_id, {port, vlan}, remote_ids_);
  }

  void look(const char* name, const identifier_view& id, const line_key& line, owners_by_bytes& known)
  {
    const auto add = [&](const char* what, const std::string& macro = {}) {
      findings_.push_back({what, name, id.text, macro, {line}});
    };
    if (id.bytes.empty())
      add("empty");
    if (id.cut)
      add("cut");
    if (std::ranges::find(id.bytes, 0) != id.bytes.end())
      add("zero-byte");
    for (const std::string& macro : id.without_value)
      add("no-value", macro);
    if (!id.bytes.empty()) {
      owners& same = known[std::string(id.bytes.begin(), id.bytes.end())];
      same.text = id.text;
      same.lines.push_back(line);
    }
  }

  // VLANs of one port may share an identifier: it names the line.
  void shared_find(const char* name, const owners_by_bytes& known)
  {
    for (const auto& [bytes, same] : known) {
      std::set<uint32_t> ports;
      for (const line_key& line : same.lines)
        ports.insert(line.port);
      if (ports.size() > 1)
        findings_.push_back({"shared", name, same.text, {}, same.lines});
    }
  }

  const context& context_;
  std::string bridge_;
  line_inspector lines_;
  size_t line_count_ = 0;
  owners_by_bytes circuit_ids_;
  owners_by_bytes remote_ids_;
  std::vector<finding> findings_;
};

void print_json(const check& checked)
{
  nlohmann::ordered_json json;
  json["lines"] = checked.line_count();
  json["findings"] = nlohmann::ordered_json::array();
  for (const finding& found : checked.findings()) {
    nlohmann::ordered_json entry{{"finding", found.what}, {"identifier", found.identifier}};
    json_put_text(entry, "text", found.text);
    entry["macro"] = found.macro;
    entry["lines"] = nlohmann::ordered_json::array();
    for (const line_key& line : found.lines)
      entry["lines"].push_back({{"port", line.port}, {"vlan", line.vlan}});
    json["findings"].push_back(std::move(entry));
  }
  std::printf("%s\n", json.dump().c_str());
}

void print_text(const check& checked)
{
  for (const finding& found : checked.findings()) {
    std::string lines;
    for (const line_key& line : found.lines)
      lines += (lines.empty() ? "" : ", ") + line_text(line);
    std::printf("%s: %s\n", lines.c_str(), sentence(found).c_str());
  }
  std::printf("%zu lines, %zu findings\n", checked.line_count(), checked.findings().size());
}

}  // namespace

void format_check_run(const context& context, const given_words& given)
{
  check checked(context, given.arguments[0]);
  checked.run();
  context.json ? print_json(checked) : print_text(checked);
}
