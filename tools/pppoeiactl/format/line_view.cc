#include "tools/pppoeiactl/format/line_view.h"

#include "tools/pppoeiactl/agent/context.h"

#include "pppoeia/customid/customid.h"
#include "tools/pppoeiactl/agent/discovery.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

namespace {

constexpr int32_t mode_ethernet = 0;
constexpr int32_t mode_custom = 2;

std::string text_answer(const context& context, const api::operation& operation, const words& inputs)
{
  return agent_client::text_of(context.demand(operation, inputs).buffers.back());
}

int64_t number_answer(const context& context, const api::operation& operation, const words& inputs)
{
  return agent_client::number_of(operation.arguments().back(), context.demand(operation, inputs).buffers.back());
}

int32_t port_mode(const context& context, const std::string& bridge, uint32_t port)
{
  const words inputs{bridge, std::to_string(port)};
  return static_cast<int32_t>(number_answer(context, row("pppoeia_port_vsa_circuit_id_mode_get"), inputs));
}

std::optional<pppoeia_port_vlan_entry> entry_of(const context& context, const std::string& bridge,
                                                const line_view& line)
{
  const api::operation& operation = row("pppoeia_port_vlan_info_get");
  const words inputs{bridge, std::to_string(line.port), std::to_string(line.vlan)};
  const agent_client::answer answer = context.ask(operation, inputs);
  if (line.vlan == no_vlan || answer.result == -ENOENT)
    return std::nullopt;
  if (answer.result != 0)
    context.refuse(operation, inputs, answer.result);
  return told_entry(answer);
}

}  // namespace

const char* origin_text(origin from)
{
  switch (from) {
  case origin::port_vlan:
    return "port-vlan";
  case origin::port:
    return "port";
  case origin::bridge:
    return "bridge";
  case origin::nowhere:
    break;
  }
  return "none";
}

// What differs between the two identifiers.
struct line_inspector::identifier_kind {
  char (pppoeia_port_vlan_entry::*entry_format)[129];
  std::string line_inspector::*bridge_format;
  bool line_inspector::*inserts;
  bool is_circuit_id;
};

line_inspector::line_inspector(const context& context, const std::string& bridge)
    : context_(context), bridge_(bridge),
      circuit_id_format_(text_answer(context, row("pppoeia_circuit_id_format_get"), {bridge})),
      remote_id_format_(text_answer(context, row("pppoeia_remote_id_format_get"), {bridge})), trial_(context, bridge),
      ethernet_begin_(text_answer(context, row("pppoeia_bridge_vendor_get"), {bridge}) + ":" +
                      text_answer(context, row("pppoeia_bridge_shelf_id_get"), {bridge}) + " eth "),
      names_cvlan_(number_answer(context, row("pppoeia_bridge_vsa_circuit_id_cvlan_get"), {bridge}) != 0),
      inserts_circuit_id_(number_answer(context, row("pppoeia_bridge_vsa_insert_circuit_id_get"), {bridge}) != 0),
      inserts_remote_id_(number_answer(context, row("pppoeia_bridge_vsa_insert_remote_id_get"), {bridge}) != 0)
{}

const format_reading& line_inspector::reading(const std::string& format)
{
  const auto at = readings_.find(format);
  return at != readings_.end() ? at->second : readings_.emplace(format, format_read(format)).first->second;
}

// The macros alone come first, where no number or delimiter of the format reaches them.
expansion line_inspector::expand(const line_view& line, const format_reading& read, words& without_value, uint16_t cvid)
{
  std::set<std::string> names;
  for (const format_piece& piece : read.pieces)
    if (piece.is_macro && piece.stays.empty() && piece.macro.type != HEX)
      names.insert(macroFormatTypeToString(piece.macro.type));
  words parts;
  for (const std::string& name : names)
    parts.push_back("$" + name);
  for (const format_piece& piece : read.pieces)
    parts.push_back(piece.text);
  trial_.line_set(line.port, line.vlan, cvid);
  const words results = trial_.expand(parts);
  without_value.clear();
  auto result = results.begin();
  for (const std::string& name : names)
    if ((result++)->empty())
      without_value.push_back(name);
  return pieces_join(read, words(result, results.end()));
}

namespace {

// The macros whose values come with the frame.
words of_frame(const format_reading& read)
{
  words names;
  for (const auto& [type, name] : {std::pair{CVID, "CVID"}, std::pair{CLNT_MAC, "CLNT_MAC"}})
    if (std::ranges::any_of(read.pieces, [wanted = type](const format_piece& piece) {
          return piece.is_macro && piece.stays.empty() && piece.macro.type == wanted;
        }))
      names.emplace_back(name);
  return names;
}

}  // namespace

void line_inspector::expand(const identifier_kind& kind, const line_view& line, identifier_view& id)
{
  const format_reading& read = reading(id.format);
  const expansion found = expand(line, read, id.without_value, kind.is_circuit_id ? line.cvid : no_vlan);
  id.text = found.text.substr(0, customIdMax);
  id.bytes = found.bytes;
  id.cut = found.cut;
  id.of_frame = of_frame(read);
  if (!kind.is_circuit_id)
    std::erase(id.of_frame, "CVID");
  // Frames bring these; that they are missing here means nothing.
  for (const std::string& macro : id.of_frame)
    std::erase(id.without_value, macro);
  if (line.vlan == no_vlan)
    std::erase(id.without_value, "VLAN_NAME");
}

std::string line_inspector::name(uint32_t port)
{
  trial_.line_set(port, no_vlan, no_vlan);
  return trial_.expand({"$INTF"}).front();
}

// The agent's answer has the VLANs of the bridge's last frame where this line's belong. What stands before them shows
// in it, unless the text is cut there already.
std::string line_inspector::ethernet_text(const line_view& line, const std::string& answered)
{
  const size_t slash = answered.find('/', std::min(ethernet_begin_.size(), answered.size()));
  if (line.vlan == no_vlan || slash == std::string::npos)
    return answered;
  std::string text = answered.substr(0, slash + 1) + name(line.port);
  // A port has VLANs of its own, which no operation tells: those of the bridge are among them.
  if (line.vlan <= no_vlan && (line.vlan_enabled || answered.size() > text.size()))
    text += ":" + std::to_string(line.vlan);
  if (names_cvlan_ && line.cvid != no_vlan)
    text += ":" + std::to_string(line.cvid);
  return text.substr(0, customIdMax);
}

void line_inspector::default_text(const line_view& line, identifier_view& id)
{
  const words inputs{bridge_, std::to_string(line.port), std::to_string(line.vlan)};
  id.text = text_answer(context_, row("gen_circuit_id_by_intf_vlan"), inputs);
  if (line.mode == mode_ethernet) {
    id.text = ethernet_text(line, id.text);
    if (names_cvlan_)
      id.of_frame = {"CVID"};
  }
  id.bytes.assign(id.text.begin(), id.text.end());
  id.cut = id.bytes.size() >= customIdMax;
  id.bytes.resize(std::min(id.bytes.size(), customIdMax));
}

identifier_view line_inspector::identifier(const identifier_kind& kind, const line_view& line,
                                           const pppoeia_port_vlan_entry* entry, bool custom)
{
  identifier_view id;
  id.inserted = this->*kind.inserts;
  if (!custom) {
    default_text(line, id);
    return id;
  }
  if (entry && (entry->*kind.entry_format)[0]) {
    id.format_from = origin::port_vlan;
    id.format.assign(entry->*kind.entry_format, strnlen(entry->*kind.entry_format, sizeof entry->cid_format));
  } else if (!(this->*kind.bridge_format).empty()) {
    id.format_from = origin::bridge;
    id.format = this->*kind.bridge_format;
  }
  if (!id.format.empty())
    expand(kind, line, id);
  return id;
}

line_view line_inspector::view(uint32_t port, uint16_t vlan, uint16_t cvid)
{
  const identifier_kind circuit_id{&pppoeia_port_vlan_entry::cid_format, &line_inspector::circuit_id_format_,
                                   &line_inspector::inserts_circuit_id_, true};
  const identifier_kind remote_id{&pppoeia_port_vlan_entry::rid_format, &line_inspector::remote_id_format_,
                                  &line_inspector::inserts_remote_id_, false};
  line_view line;
  line.port = port;
  line.vlan = vlan;
  line.cvid = cvid;
  line.mode = port_mode(context_, bridge_, port);
  line.vlan_enabled = number_answer(context_, row("pppoeia_bridge_vlan_get"), {bridge_, std::to_string(vlan)}) != 0;
  const std::optional<pppoeia_port_vlan_entry> entry = entry_of(context_, bridge_, line);
  // An id that means "no VLAN" by its low 12 bits takes the port's mode, though not the port's formats.
  if (entry && (vlan & 0x0fff) < no_vlan) {
    line.mode = entry->cid_mode;
    line.mode_from = origin::port_vlan;
  }
  const pppoeia_port_vlan_entry* found = entry ? &*entry : nullptr;
  line.circuit_id = identifier(circuit_id, line, found, line.mode == mode_custom);
  line.remote_id = identifier(remote_id, line, found, true);
  return line;
}
