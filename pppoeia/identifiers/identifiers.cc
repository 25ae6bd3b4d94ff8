#include "pppoeia/identifiers/identifiers.h"

#include "pppoeia/customid/trace.h"
#include "pppoeia/identifiers/macro_values.h"
#include "pppoeia/log.h"
#include "pppoeia/text.h"

#include <string>

namespace {

constexpr size_t text_max = customIdMax;

struct vlan_words {
  uint16_t first;
  uint16_t second;
};

// Tag control words of the frame being processed, or last received.
vlan_words frame_words(const pppoeia_bridge& bridge)
{
  const uint32_t words = bridge.frame_vlan_words.load(std::memory_order_relaxed);
  return {static_cast<uint16_t>(words >> 16), static_cast<uint16_t>(words)};
}

// An entry's mode is the one of its own 16-bit id; ids that mean "no VLAN" by their low 12 bits have none.
int32_t mode_select(const pppoeia_bridge& bridge, const pppoeia_port& port, uint16_t vid)
{
  int32_t mode = 0;
  if (const pppoeia_port_vlan* entry = (vid & 0x0fff) < vid_none ? port_vlan_find(port, vid) : nullptr) {
    mode = entry->cid_mode;
    pppoeia_log(log_debug, "<%s> >> Intf-VLAN CID mode: %d\n", bridge.name, mode);
    CUSTOMID_TRACE("\t", "pppoeia_build_circuit_id", "interface-vlan CID mode=%d\n", mode);
  } else {
    mode = static_cast<int32_t>(port.vsa_circuit_id_mode);
    pppoeia_log(log_debug, "<%s> >> Interface CID mode: %d\n", bridge.name, mode);
    CUSTOMID_TRACE("\t", "pppoeia_build_circuit_id", "interface CID mode=%d\n", mode);
  }
  if (log_enabled(log_debug))
    pppoeia_log(log_debug, "<%s> >> Selected CID mode: %d\n", bridge.name, mode);
  return mode;
}

// TR-101's default for Ethernet lines, with the VLANs where port and bridge ask for them.
void ethernet_text(char* out, const pppoeia_bridge& bridge, const pppoeia_port& port, uint16_t vid)
{
  text_builder<512> text;
  text << bridge.vendor << ':' << bridge.shelf_id << " eth " << static_cast<int32_t>(bridge.board_pos) << '/'
       << port.port_name;
  const vlan_words words = frame_words(bridge);
  if (vid != vid_none) {
    if (vid <= 0x0fff && port.vlan_info.test(vid))
      text << ':' << (words.first & 0x0fff);
    if (bridge.vsa_circuit_id_cvlan && words.second != vid_none)
      text << ':' << (words.second & 0x0fff);
  } else {
    text << ":<vid>";
    if (bridge.vsa_circuit_id_cvlan)
      text << ":<cvid>";
  }
  text.give(out, text_max);
}

// TR-101's default for ATM lines, of an ATM port only.
void atm_text(char* out, const pppoeia_bridge& bridge, const pppoeia_port& port)
{
  if (std::strcmp(port.type, "atm") != 0)
    return;
  text_builder<identifier_text_size - 1> text;
  text << bridge.vendor << ':' << bridge.shelf_id << " atm " << static_cast<int32_t>(bridge.board_pos) << '/'
       << static_cast<int32_t>(port.parent_id) << ':' << port.vpi << '.' << port.vci;
  text.give(out, identifier_text_size - 1);
}

// What differs between the custom formats of the two identifiers.
struct custom_kind {
  const char* builder;
  const char* word;  // "CID" or "RID"
  const char* bridge_lookup;
  char (pppoeia_port_vlan::*entry_format)[bridge_format_max + 1];
  char (pppoeia_bridge::*bridge_format)[bridge_format_max + 1];
};

constexpr custom_kind custom_cid{"pppoeia_build_circuit_id", "CID", "br_circuit_id_format_get",
                                 &pppoeia_port_vlan::cid_format, &pppoeia_bridge::pppoeia_cid_format};
constexpr custom_kind custom_rid{"pppoeia_build_remote_id", "RID", "br_remote_id_format_get",
                                 &pppoeia_port_vlan::rid_format, &pppoeia_bridge::pppoeia_rid_format};

// The format of the port and VLAN, else the bridge's; null when there is none.
const char* format_choose(const custom_kind& kind, const pppoeia_bridge& bridge, const pppoeia_port& port, uint16_t vid)
{
  const pppoeia_port_vlan* entry = vid != vid_none ? port_vlan_find(port, vid) : nullptr;
  if (entry && (entry->*kind.entry_format)[0]) {
    pppoeia_log(log_debug, "<%s> >> Using custom %s format from intf-VLAN='%s'\n", bridge.name, kind.word,
                entry->*kind.entry_format);
    CUSTOMID_TRACE("\t", kind.builder, "Using custom format from intf-VLAN='%s'\n", entry->*kind.entry_format);
    return entry->*kind.entry_format;
  }
  pppoeia_log(log_debug, "%s(%s)", kind.bridge_lookup, bridge.name);
  if ((bridge.*kind.bridge_format)[0]) {
    pppoeia_log(log_debug, "<%s> >> Using global %s format='%s'\n", bridge.name, kind.word, bridge.*kind.bridge_format);
    CUSTOMID_TRACE("\t", kind.builder, "Using global format='%s'\n", bridge.*kind.bridge_format);
    return bridge.*kind.bridge_format;
  }
  pppoeia_log(log_debug, "<%s> >> No custom %s format configured for intf=%d, vid=%d. Return empty %s\n", bridge.name,
              kind.word, static_cast<int>(port.port_id), vid, kind.word);
  CUSTOMID_TRACE("\t", kind.builder, "No format configured\n");
  return nullptr;
}

void custom_text(const custom_kind& kind, char* out, const pppoeia_bridge& bridge, const pppoeia_port& port,
                 uint16_t vid, uint16_t cvid, std::vector<unsigned char>& bin, int useData)
{
  std::string text;
  if (const char* format = format_choose(kind, bridge, port, vid))
    genCustomId(&bridge, port.port_id, vid, cvid, format, text, bin, static_cast<idGenType>(useData));
  const size_t length = std::min(text.size(), text_max);
  std::memcpy(out, text.data(), length);
  out[length] = '\0';
  pppoeia_log(log_debug, "<%s> >> Generated custom %s='%s'\n", bridge.name, kind.word, text.c_str());
  CUSTOMID_TRACE("\t", kind.builder, "Generated custom %s='%s'\n", kind.word, text.c_str());
}

void custom_circuit_id(char* out, const pppoeia_bridge& bridge, const pppoeia_port& port, uint16_t vid,
                       std::vector<unsigned char>& bin, int useData)
{
  const uint16_t word = bridge.frame_buffer ? frame_words(bridge).second : vid_none;
  const auto cvid = static_cast<uint16_t>(word & 0x0fff);
  CUSTOMID_TRACE("\t", "pppoeia_build_circuit_id", "custom CID mode\n");
  pppoeia_log(log_debug, "<%s> >> Custom CID mode for intfId=%d, vid=%d\n", bridge.name, static_cast<int>(port.port_id),
              vid);
  custom_text(custom_cid, out, bridge, port, vid, cvid, bin, useData);
}

}  // namespace

void pppoeia_build_circuit_id(char* out, pppoeia_bridge* bridge, pppoeia_port* port, uint16_t vid,
                              std::vector<unsigned char>& bin, int useData)
{
  if (!out || !bridge)
    return;
  if (log_enabled(log_debug))
    pppoeia_log(log_debug, "<%s> >> pppoeia_build_circuit_id\n", bridge->name);
  if (!port)
    return;
  switch (mode_select(*bridge, *port, vid)) {
  case cid_ethernet:
    ethernet_text(out, *bridge, *port, vid);
    break;
  case cid_atm:
    atm_text(out, *bridge, *port);
    break;
  case cid_custom:
    custom_circuit_id(out, *bridge, *port, vid, bin, useData);
    break;
  default:
    break;
  }
  customid_trace_end();
}

void pppoeia_build_remote_id(char* out, pppoeia_bridge* bridge, pppoeia_port* port, uint16_t vid,
                             std::vector<unsigned char>& bin, int useData)
{
  if (!out || !bridge || !port)
    return;
  // The Remote ID never carries a customer VLAN.
  custom_text(custom_rid, out, *bridge, *port, vid, vid_none, bin, useData);
  customid_trace_end();
}

void builder_identifiers::circuit_id(pppoeia_bridge& bridge, pppoeia_port& port, uint16_t vid, identifier& id)
{
  pppoeia_build_circuit_id(id.text, &bridge, &port, vid, id.bin, idGenLive);
}

void builder_identifiers::remote_id(pppoeia_bridge& bridge, pppoeia_port& port, uint16_t vid, identifier& id)
{
  pppoeia_build_remote_id(id.text, &bridge, &port, vid, id.bin, idGenLive);
}
