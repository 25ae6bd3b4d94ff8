// All that can be set on the agent, on one page: the fields with their factory values, and a row for each setting.
//
// A field's size is the room of its text and of the operations' arguments; its initialiser is what a new object has. A
// row names the setting, its field and the two operations that write and read it. From the fields and rows come the
// operations' bodies and declarations (settings.cc, pppoeia.h), the sizes in operations.h, a bridge's values at
// creation, the command tool's show, save and apply, and the tests that try every setting at its limits.
//
// To add one: its field and its row here, and its two operations in operations.h. A setting that does more than be kept
// has a row of the kind "own", and its operations are written out in settings.cc.
#ifndef PPPOEIA_API_SETTINGS_H
#define PPPOEIA_API_SETTINGS_H

#include "pppoeia/api/records.h"

#include <cstdint>

// Which side a port is on. Any other value stands for port_side_any.
enum port_side : int32_t {
  port_side_none,        // PPPoE disabled: frames forwarded unchanged
  port_side_subscriber,  // PADI, PADR and PADT may come in
  port_side_network,     // PADO, PADS and PADT
  port_side_any,
};

// Whether vendor tags may come in by a port. Any value but port_untrusted stands for port_trusted.
enum vendor_trust : uint32_t { port_trusted, port_untrusted };

// What happens to a vendor tag in PADO and PADS. Any value but vendor_tag_remove stands for vendor_tag_keep.
enum vendor_tag_mode : uint32_t { vendor_tag_keep, vendor_tag_remove };

// How a Circuit ID is made. Other values make none.
enum circuit_id_mode : int32_t { cid_unset = -1, cid_ethernet, cid_atm, cid_custom };

// Kinds of a port that make it an uplink: no VLAN check, and trusted for all frames by
// pppoeia_apply_default_settings().
enum port_kind : uint32_t { port_kind_uplink = 1, port_kind_uplink_too = 5 };

enum setting_limits : uint32_t {
  bridge_name_max = 10,        // characters
  port_vlan_format_max = 127,  // characters of a format of one port and VLAN, a byte fewer than its field holds
  vlan_name_max = 31,          // characters
};

struct bridge_settings {
  uint32_t max_pdu;              // largest PDU of a tagged frame, Ethernet header included; the device's MTU at first
  char vendor[20] = "VELTRONA";  // first word of default identifiers
  char shelf_id[40] = "";        // behind it
  uint32_t chassis_id = 99;      // for formats, as the next three
  char sysname[65] = "";
  char location[65] = "";
  char contact[65] = "";
  uint32_t vsa_mode = vendor_tag_remove;
  uint32_t vsa_insert_circuit_id =
      1;                              // the Agent Circuit ID (TR-101 sub-option 1) goes into the vendor tag, or not (0)
  uint32_t vsa_insert_remote_id = 1;  // the Agent Remote ID (sub-option 2); with neither the tag holds its id alone
  uint32_t vsa_circuit_id_cvlan = 0;  // default Circuit IDs end in the customer VLAN, where a frame has one
  char pppoeia_cid_format[129] = "";  // wherever a port and VLAN has none of its own; read when one is built
  char pppoeia_rid_format[129] = "";
};

// Without initialisers: port slots come as zeros with their bridge.
struct port_settings {
  char dev_name[17];  // from here to the location: given with the port
  char port_name[15];
  char type[12];             // at most 10 characters
  uint32_t port_info_extra;  // a port_kind, or another number
  pppoeia_location location;
  uint32_t parent_id;  // port from which identifier texts are inherited; 0 for none
  uint32_t trust;
  int32_t state;  // a port_side
  char remote_id[64];
  uint32_t vsa_circuit_id_mode;  // where the port and VLAN has no entry
  int32_t vpi;                   // of an ATM port; -1 when it is added, as the next
  int32_t vci;
  char intf_descr[65];
  char cpe_serial[13];
  uint8_t cpe_mac[6];  // transmission order
};

// Of one port and VLAN.
struct entry_settings {
  int32_t cid_mode = cid_unset;
  char cid_format[129] = "";
  char rid_format[129] = "";
};

// What becomes of a text that is longer than its field.
enum class too_long : uint8_t { cut, no_space, no_memory };

// The rows, in the order in which a saved configuration has them:
//
//   number(name, field, setter, getter)            a 32-bit number, kept as given
//   number(name, field, setter, getter, "words")   the same of a port; the words tell of a change in the log
//   text(name, field, setter, getter, too_long)    a text
//   own(name, factory value, setter, getter)       operations of its own; the value is a field's, or in words
//
// The operations have C linkage and are int setter(const char* bridge, VALUE) and int getter(const char* bridge,
// VALUE*), of a port with its id, uint32_t port, behind the bridge. Not every getter has a function id.
// clang-format off
#define PPPOEIA_BRIDGE_SETTINGS(number, text, own) \
  own(max_pdu, "", pppoeia_bridge_max_pdu_set, pppoeia_bridge_max_pdu_get) \
  own(state, "on", pppoeia_bridge_state_set, pppoeia_bridge_state_get) \
  text(vendor, vendor, pppoeia_bridge_vendor_set, pppoeia_bridge_vendor_get, no_memory) \
  text(shelf_id, shelf_id, pppoeia_bridge_shelf_id_set, pppoeia_bridge_shelf_id_get, no_space) \
  number(chassis_id, chassis_id, pppoeia_bridge_chassis_id_set, pppoeia_bridge_chassis_id_get) \
  text(sysname, sysname, pppoeia_bridge_sysname_set, pppoeia_bridge_sysname_get, no_space) \
  text(location, location, pppoeia_bridge_location_set, pppoeia_bridge_location_get, no_space) \
  text(contact, contact, pppoeia_bridge_contact_set, pppoeia_bridge_contact_get, no_space) \
  own(vsa_mode, bridge_factory.vsa_mode, pppoeia_bridge_vsa_mode_set, pppoeia_bridge_vsa_mode_get) \
  number(insert_circuit_id, vsa_insert_circuit_id, \
         pppoeia_bridge_vsa_insert_circuit_id_set, pppoeia_bridge_vsa_insert_circuit_id_get) \
  number(insert_remote_id, vsa_insert_remote_id, \
         pppoeia_bridge_vsa_insert_remote_id_set, pppoeia_bridge_vsa_insert_remote_id_get) \
  number(circuit_id_cvlan, vsa_circuit_id_cvlan, \
         pppoeia_bridge_vsa_circuit_id_cvlan_set, pppoeia_bridge_vsa_circuit_id_cvlan_get) \
  own(circuit_id_format, bridge_factory.pppoeia_cid_format, \
      pppoeia_circuit_id_format_set, pppoeia_circuit_id_format_get) \
  own(remote_id_format, bridge_factory.pppoeia_rid_format, \
      pppoeia_remote_id_format_set, pppoeia_remote_id_format_get)

#define PPPOEIA_PORT_SETTINGS(number, text, own) \
  own(parent, port_factory.parent_id, pppoeia_port_parent_set, pppoeia_port_parent_get) \
  number(trust, trust, pppoeia_port_trust_set, pppoeia_port_trust_get, "type set to") \
  own(state, port_factory.state, pppoeia_port_state_set, pppoeia_port_state_get) \
  own(remote_id, port_factory.remote_id, pppoeia_port_remote_id_set, pppoeia_port_remote_id_get) \
  own(circuit_id_mode, port_factory.vsa_circuit_id_mode, \
      pppoeia_port_vsa_circuit_id_mode_set, pppoeia_port_vsa_circuit_id_mode_get) \
  own(pvc, "4294967295 4294967295", pppoeia_port_pvc_set, pppoeia_port_pvc_get) \
  text(description, intf_descr, pppoeia_bridge_intf_descr_set, pppoeia_bridge_intf_descr_get, cut) \
  text(cpe_serial, cpe_serial, pppoeia_bridge_cpe_serial_set, pppoeia_bridge_cpe_serial_get, cut) \
  own(cpe_mac, "00:00:00:00:00:00", pppoeia_bridge_cpe_mac_set, pppoeia_bridge_cpe_serial_get)

#define PPPOEIA_PROCESS_SETTINGS(own) \
  own(debug_state, "off", pppoeia_debug_admin_state_set, pppoeia_debug_admin_state_get) \
  own(log_level, "info", pppoeia_log_level_set, pppoeia_log_level_get)
// clang-format on

// What new objects have. A bridge's max_pdu is not known before its device is.
inline constexpr bridge_settings bridge_factory{.max_pdu = 0};
inline constexpr port_settings port_factory{};

#endif
