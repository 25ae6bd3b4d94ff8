// What the agent answers to the macros of identifier formats: values from the records, the node, the frame or the test
// data, and the expansion of a format with them.
//
// One function a macro, by its name in lower case; macro_values.cc says which macro each one answers. A function writes
// the raw value to an empty `value`; what stands in the way is logged at debug level, once, and leaves `value` empty.
// None takes a lock: a worker asks with its bridge's mutex held, the management thread, the only writer of
// configuration, without.
#ifndef PPPOEIA_IDENTIFIERS_MACRO_VALUES_H
#define PPPOEIA_IDENTIFIERS_MACRO_VALUES_H

#include "pppoeia/customid/customid.h"
#include "pppoeia/log.h"
#include "pppoeia/records.h"

#include <charconv>
#include <cstring>
#include <string>
#include <vector>

// Where macro values come from.
enum idGenType : int {
  idGenLive = 0,       // arguments, records and the frame being processed, if there is one
  idGenAvailable = 1,  // arguments and records, client MAC of the test data
  idGenTest = 2,       // interface, VLANs, client MAC and line numbers of the test data
};

// Says that the calling thread processes no frame until the scope ends: what it expands of idGenLive has no client. The
// frame that a worker processes meanwhile is another line's.
class no_frame_scope {
public:
  no_frame_scope();
  ~no_frame_scope();
  no_frame_scope(const no_frame_scope&) = delete;
  no_frame_scope& operator=(const no_frame_scope&) = delete;
};

// Expands `formatStr` for an interface of the bridge and a VLAN pair, as custom_id_expand() does. Always true.
bool genCustomId(const pppoeia_bridge* bridge, unsigned intfId, unsigned short vid, unsigned short cvid,
                 const std::string& formatStr, std::string& genId, std::vector<unsigned char>& genIdBin,
                 idGenType useData);

// Writes the macro's value, before any option, to `macroString`. False only for a macro that has no source of values at
// all; everything else that stands in the way is logged at debug level and gives an empty value.
bool getMacroStringValue(const pppoeia_bridge* bridge, customIdFormat macroType, std::string& macroString,
                         unsigned intfId, idGenType useData, unsigned short vid, unsigned short cvid);

// For which line, and from where, a value is wanted.
struct macro_question {
  const pppoeia_bridge& bridge;
  unsigned port_id;
  idGenType use_data;
  unsigned vid;
  unsigned cvid;
};

namespace macro_values {

// values_bridge.cc: the bridge's settings and VLANs.
void shelf(const macro_question& q, std::string& value);
void chassis(const macro_question& q, std::string& value);
void sysname(const macro_question& q, std::string& value);
void location(const macro_question& q, std::string& value);
void contact(const macro_question& q, std::string& value);
void vlan(const macro_question& q, std::string& value);
void vlan_name(const macro_question& q, std::string& value);
void cvid(const macro_question& q, std::string& value);

// values_port.cc: the port's record.
void panel(const macro_question& q, std::string& value);
void intf_type(const macro_question& q, std::string& value);
void port(const macro_question& q, std::string& value);
void port_rem_id(const macro_question& q, std::string& value);
void intf(const macro_question& q, std::string& value);
void intf_dscr(const macro_question& q, std::string& value);
void onu(const macro_question& q, std::string& value);
void vgem(const macro_question& q, std::string& value);
void pvc_intf(const macro_question& q, std::string& value);
void vpi(const macro_question& q, std::string& value);
void vci(const macro_question& q, std::string& value);
void cpe_serial(const macro_question& q, std::string& value);
void cpe_mac(const macro_question& q, std::string& value);

// values_node.cc: the node and the client's frame.
void agent_board(const macro_question& q, std::string& value);
void board(const macro_question& q, std::string& value);
void clnt_mac(const macro_question& q, std::string& value);
void agent_mac(const macro_question& q, std::string& value);
void agent_ipv4(const macro_question& q, std::string& value);
void agent_ipv6(const macro_question& q, std::string& value);

// What they share.

// The port of that id in any slot that is taken, the last slot included; null otherwise. Port n is in slot n.
inline const pppoeia_port* slot_of(const macro_question& q, uint32_t id)
{
  if (id == 0 || id > q.bridge.port_count)
    return nullptr;
  const pppoeia_port& port = q.bridge.port[id - 1];
  return port.dev_name[0] && port.port_id == id ? &port : nullptr;
}

inline void unavailable(const macro_question& q, const char* why)
{
  pppoeia_log(log_debug, "<%s> >> %s", q.bridge.name, why);
}

// A text in a record field; bytes after the NUL are not its.
template <size_t Size>
void put_text(std::string& value, const char (&field)[Size])
{
  value.assign(field, strnlen(field, Size));
}

inline void put_number(std::string& value, uint32_t number)
{
  char digits[10];
  value.assign(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

// Six groups of two upper-case digits.
inline void put_mac(std::string& value, const uint8_t mac[6])
{
  constexpr char digits[] = "0123456789ABCDEF";
  value.assign(17, ':');
  for (size_t i = 0; i < 6; ++i) {
    value[3 * i] = digits[mac[i] >> 4];
    value[3 * i + 1] = digits[mac[i] & 15];
  }
}

}  // namespace macro_values

#endif
