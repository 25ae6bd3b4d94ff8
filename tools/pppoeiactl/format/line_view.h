// Which identifiers a frame of a line will get, and where they come from: the agent's choice of mode and format
// followed step by step with its getters, values through format trials. Its own queries do not answer that: they name
// the VLAN of the bridge's last frame.
#ifndef TOOLS_PPPOEIACTL_FORMAT_LINE_VIEW_H
#define TOOLS_PPPOEIACTL_FORMAT_LINE_VIEW_H

#include "tools/pppoeiactl/format/format_reading.h"
#include "tools/pppoeiactl/format/format_trial.h"

#include <map>
#include <optional>

// Of a mode or a format.
enum class origin { port_vlan, port, bridge, nowhere };
const char* origin_text(origin from);

struct identifier_view {
  std::string format;  // empty: none, or not looked at in this mode
  origin format_from = origin::nowhere;
  std::string text;                  // of a byte identifier its hexadecimal digits
  std::vector<unsigned char> bytes;  // as in the tag
  bool cut = false;
  bool inserted = true;  // as the bridge is set
  words of_frame;        // what of it differs from frame to frame: macros
  words without_value;   // macros of the format
};

struct line_view {
  uint32_t port = 0;
  uint16_t vlan = no_vlan;
  uint16_t cvid = no_vlan;
  bool vlan_enabled = false;  // on the bridge; where not, frames pass as they are
  int32_t mode = 0;
  origin mode_from = origin::port;
  identifier_view circuit_id;
  identifier_view remote_id;
};

class line_inspector {
public:
  // `bridge` must exist; throws otherwise.
  line_inspector(const context& context, const std::string& bridge);

  // Throws for a port that does not exist.
  line_view view(uint32_t port, uint16_t vlan, uint16_t cvid = no_vlan);

  // The port's name.
  std::string name(uint32_t port);

private:
  struct identifier_kind;

  identifier_view identifier(const identifier_kind& kind, const line_view& line, const pppoeia_port_vlan_entry* entry,
                             bool custom);
  expansion expand(const line_view& line, const format_reading& read, words& without_value, uint16_t cvid);
  void expand(const identifier_kind& kind, const line_view& line, identifier_view& id);
  void default_text(const line_view& line, identifier_view& id);
  std::string ethernet_text(const line_view& line, const std::string& answered);
  const format_reading& reading(const std::string& format);

  const context& context_;
  std::string bridge_;
  std::string circuit_id_format_;
  std::string remote_id_format_;
  format_trial trial_;
  std::map<std::string, format_reading> readings_;
  std::string ethernet_begin_;  // "VENDOR:SHELF eth "
  bool names_cvlan_;            // default texts do
  bool inserts_circuit_id_;
  bool inserts_remote_id_;
};

#endif
