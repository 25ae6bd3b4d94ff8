#include "tools/pppoeiactl/line_view.h"

#include "pppoeia/customid/customid.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

namespace {

constexpr int32_t mode_custom = 2;

std::string text_answer(const context& context, const api::operation& operation, const words& inputs)
{
  return agent_client::text_of(context.demand(operation, inputs).buffers.back());
}

int32_t port_mode(const context& context, const std::string& bridge, uint32_t port)
{
  const api::operation& operation = row("pppoeia_port_vsa_circuit_id_mode_get");
  const agent_client::answer answer = context.demand(operation, {bridge, std::to_string(port)});
  return static_cast<int32_t>(agent_client::number_of(operation.arguments().back(), answer.buffers.back()));
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
  pppoeia_port_vlan_entry entry{};
  std::memcpy(&entry, answer.buffers.back().data(), std::min(answer.buffers.back().size(), sizeof entry));
  return entry;
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
  const api::operation& query;
  char (pppoeia_port_vlan_entry::*entry_format)[129];
  std::string line_inspector::*bridge_format;
  bool is_circuit_id;
};

line_inspector::line_inspector(const context& context, const std::string& bridge)
    : context_(context), bridge_(bridge),
      circuit_id_format_(text_answer(context, row("pppoeia_circuit_id_format_get"), {bridge})),
      remote_id_format_(text_answer(context, row("pppoeia_remote_id_format_get"), {bridge})), trial_(context, bridge)
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

// The agent's query takes the customer VLAN of the bridge's last frame, which nothing tells: what the query answers
// does, by trying. Frames may come meanwhile, so the search is made once.
expansion line_inspector::expand_as_answered(const line_view& line, const format_reading& read, identifier_view& id)
{
  const auto fits = [&](const expansion& tried) { return tried.text.substr(0, customIdMax) == id.text; };
  const expansion without = expand(line, read, id.without_value, no_vlan);
  if (fits(without))
    return without;
  id.last_frame = true;
  expansion tried = expand(line, read, id.without_value, last_cvid_);
  for (uint16_t cvid = 0; !fits(tried) && !searched_ && cvid < no_vlan; ++cvid) {
    tried = expand(line, read, id.without_value, cvid);
    last_cvid_ = cvid;
  }
  searched_ = true;
  return fits(tried) ? tried : without;
}

void line_inspector::expand(const identifier_kind& kind, const line_view& line, identifier_view& id)
{
  const format_reading& read = reading(id.format);
  const bool names_cvid = std::ranges::any_of(
      read.pieces, [](const format_piece& piece) { return piece.is_macro && piece.macro.type == CVID; });
  const expansion found = kind.is_circuit_id && names_cvid ? expand_as_answered(line, read, id)
                                                           : expand(line, read, id.without_value, no_vlan);
  id.bytes = found.bytes;
  id.cut = found.cut;
  // Frames bring these; that they are missing here means nothing.
  if (kind.is_circuit_id)
    std::erase(id.without_value, "CVID");
  if (line.vlan == no_vlan)
    std::erase(id.without_value, "VLAN_NAME");
}

identifier_view line_inspector::identifier(const identifier_kind& kind, const line_view& line,
                                           const pppoeia_port_vlan_entry* entry, bool custom)
{
  identifier_view id;
  id.text = text_answer(context_, kind.query, {bridge_, std::to_string(line.port), std::to_string(line.vlan)});
  id.bytes.assign(id.text.begin(), id.text.end());
  id.cut = id.bytes.size() >= customIdMax;
  id.bytes.resize(std::min(id.bytes.size(), customIdMax));
  if (!custom)
    return id;
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

line_view line_inspector::view(uint32_t port, uint16_t vlan)
{
  const identifier_kind circuit_id{row("gen_circuit_id_by_intf_vlan"), &pppoeia_port_vlan_entry::cid_format,
                                   &line_inspector::circuit_id_format_, true};
  const identifier_kind remote_id{row("gen_remote_id_by_intf_vlan"), &pppoeia_port_vlan_entry::rid_format,
                                  &line_inspector::remote_id_format_, false};
  line_view line{port, vlan, port_mode(context_, bridge_, port), origin::port, {}, {}};
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
