#include "tools/pppoeiactl/format/commands.h"

#include "tools/pppoeiactl/agent/discovery.h"
#include "tools/pppoeiactl/agent/report.h"
#include "tools/pppoeiactl/format/line_view.h"
#include "tools/pppoeiactl/words/line.h"

#include <algorithm>
#include <cstdio>
#include <set>
#include <string>

namespace {

constexpr int64_t state_network = 2;
constexpr int32_t mode_atm = 1;

struct line_key {
  uint32_t port;
  uint16_t vlan;
};

// One cause, with the lines that it concerns.
struct finding {
  std::string_view what;
  std::string identifier;  // "circuit-id" or "remote-id"
  std::string text;        // of the identifier; the first line's, where it differs
  std::string cause;       // a macro, a format, why a format is not read on; empty where the text says all
  std::vector<line_key> lines;
};

struct finding_sentence {
  std::string_view what;
  std::string_view sentence;  // %t: the text, %c: the cause
};
constexpr finding_sentence sentences[] = {
    {"shared", "'%t' is shared"},
    {"cut", "'%t' is cut at 63 (format '%c')"},
    {"zero-byte", "'%t' holds a zero byte, where some servers end it (format '%c')"},
    {"empty", "is empty"},
    {"no-value", "$%c has no value"},
    {"unknown-macro", "%c is no macro and stays as it is written"},
    {"unused-macro", "%c"},
    {"unread", "the format is not read to its end: %c"},
    {"no-pvc", "'%t' is that of a PVC that was never set ('port pvc set')"},
};

std::string sentence(const finding& found)
{
  const auto* row = std::ranges::find(sentences, found.what, &finding_sentence::what);
  std::string text = found.identifier + " ";
  for (size_t i = 0; i < row->sentence.size(); ++i) {
    if (row->sentence[i] != '%')
      text += row->sentence[i];
    else
      text += printable(row->sentence[++i] == 't' ? found.text : found.cause);
  }
  return text;
}

bool is_name(char c)
{
  return (c >= 'A' && c <= 'Z') || c == '_';
}

bool is_option(char c)
{
  return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

// "$SYSNAM" and "$z3PROT" in text between macros.
words unknown_macros_in(const std::string& text)
{
  words found;
  for (size_t at = text.find('$'); at != std::string::npos; at = text.find('$', at + 1)) {
    size_t name = at + 1;
    while (name < text.size() && is_option(text[name]))
      ++name;
    size_t end = name;
    while (end < text.size() && is_name(text[end]))
      ++end;
    const std::string_view capitals = std::string_view(text).substr(name, end - name);
    const bool begins_known =
        std::ranges::any_of(macro_rows, [&](const macro_row& row) { return capitals.starts_with(row.name); });
    if (capitals.size() > 1 && !begins_known)
      found.push_back(text.substr(at, end - at));
  }
  return found;
}

// Names that no macro has: they stay as they are written, or begin with a macro's that is read in their place.
words unknown_macros(const format_reading& read)
{
  words found;
  for (size_t i = 0; i < read.pieces.size(); ++i) {
    const format_piece& piece = read.pieces[i];
    if (piece.is_macro)
      continue;
    const bool behind_macro = i > 0 && read.pieces[i - 1].is_macro && read.pieces[i - 1].macro.type != HEX;
    size_t end = 0;
    while (end < piece.text.size() && is_name(piece.text[end]))
      ++end;
    if (behind_macro && end > 0)
      found.push_back(read.pieces[i - 1].text + piece.text.substr(0, end));
    for (std::string& name : unknown_macros_in(piece.text))
      found.push_back(std::move(name));
  }
  return found;
}

std::string line_text(const line_key& line)
{
  return "port " + std::to_string(line.port) +
         (line.vlan == no_vlan ? " without VLAN" : " VLAN " + std::to_string(line.vlan));
}

// The first of them, and how many more.
std::string lines_text(const std::vector<line_key>& lines)
{
  constexpr size_t most = 6;
  std::string text;
  for (size_t i = 0; i < std::min(lines.size(), most); ++i)
    text += (i > 0 ? ", " : "") + line_text(lines[i]);
  return lines.size() > most ? text + " and " + std::to_string(lines.size() - most) + " more" : text;
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

  // One finding for each cause.
  void add(std::string_view what, const std::string& identifier, const std::string& text, const std::string& cause,
           const line_key& line)
  {
    const auto same = std::ranges::find_if(findings_, [&](const finding& known) {
      return known.what == what && known.identifier == identifier && known.cause == cause &&
             (!cause.empty() || known.text == text);
    });
    if (same != findings_.end())
      same->lines.push_back(line);
    else
      findings_.push_back({what, identifier, text, cause, {line}});
  }

  void look(uint32_t port, uint16_t vlan)
  {
    ++line_count_;
    const line_view line = lines_.view(port, vlan);
    look("circuit-id", line.circuit_id, {port, vlan}, circuit_ids_);
    look("remote-id", line.remote_id, {port, vlan}, remote_ids_);
    if (line.mode == mode_atm && line.circuit_id.text.ends_with(":-1.-1"))
      add("no-pvc", "circuit-id", line.circuit_id.text, {}, {port, vlan});
  }

  void look(const std::string& name, const identifier_view& id, const line_key& line, owners_by_bytes& known)
  {
    if (!id.inserted)
      return;
    const auto found = [&](std::string_view what, const std::string& cause) { add(what, name, id.text, cause, line); };
    if (id.bytes.empty())
      add("empty", name, {}, {}, line);
    if (id.cut)
      found("cut", id.format);
    if (std::ranges::find(id.bytes, 0) != id.bytes.end())
      found("zero-byte", id.format);
    for (const std::string& macro : id.without_value)
      found("no-value", macro);
    look_at_format(id, found);
    // What comes with the frame may tell lines apart that look alike here.
    if (!id.bytes.empty() && id.of_frame.empty()) {
      owners& same = known[std::string(id.bytes.begin(), id.bytes.end())];
      same.text = id.text;
      same.lines.push_back(line);
    }
  }

  template <typename Found>
  void look_at_format(const identifier_view& id, const Found& found)
  {
    const format_reading read = format_read(id.format);
    for (const std::string& name : unknown_macros(read))
      found("unknown-macro", name);
    for (const format_piece& piece : read.pieces)
      if (!piece.stays.empty())
        found("unused-macro", piece.text + " stays as it is written: " + piece.stays);
    if (id.format.find('$', read.end) != std::string::npos && unknown_macros(read).empty())
      found("unread", read.end_reason);
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
  nlohmann::ordered_json json{{"version", json_version}};
  json["lines"] = checked.line_count();
  json["findings"] = nlohmann::ordered_json::array();
  for (const finding& found : checked.findings()) {
    nlohmann::ordered_json entry{{"finding", std::string(found.what)}, {"identifier", found.identifier}};
    json_put_text(entry, "text", found.text);
    json_put_text(entry, "cause", found.cause);
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
    std::printf("%s: %s\n", lines_text(found.lines).c_str(), sentence(found).c_str());
  }
  std::printf("%zu lines, %zu findings\n", checked.line_count(), checked.findings().size());
}

}  // namespace

void format_check_run(const context& context, const given_words& given)
{
  check checked(context, given.arguments[0]);
  checked.run();
  context.json ? print_json(checked) : print_text(checked);
  std::fflush(stdout);
  if (!checked.findings().empty())
    throw command_error(exit_findings, "format check " + given.arguments[0] + ": identifiers will make trouble");
}
