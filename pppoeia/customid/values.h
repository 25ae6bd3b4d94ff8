// The sources of macro values, one function a macro. Each writes the raw value to an empty `value`; what stands in the
// way is logged at debug level, once, and leaves `value` empty. None takes a lock: a worker asks with its bridge's
// mutex held, the management thread, the only writer of configuration, without.
//
// A function has the name of its macro in lower case; vocabulary.cc puts them into the macros' rows.
#ifndef PPPOEIA_CUSTOMID_VALUES_H
#define PPPOEIA_CUSTOMID_VALUES_H

#include "pppoeia/customid/customid.h"
#include "pppoeia/log.h"
#include "pppoeia/records.h"

#include <charconv>
#include <cstring>
#include <string>

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
