// The agent's API: every operation on bridges, ports, VLANs, identifiers and the process itself.
//
// Operations run on the management thread, one at a time; pppoeia/api/operations.h gives most of them a function id
// under which management requests reach them. The names say object, attribute, verb. What holds for all of them,
// unless the operation's own lines say otherwise:
//
// - `bridge` is the name of an existing bridge. -ENOENT: there is none of that name, or the agent is not initialised.
// - `port` is a port id, 1 .. port count - 1. -ENODEV: the id is out of range or no port was added there. The bridge
//   is looked up before the port, the port before a text's length is tested.
// - `vlan` is a VLAN id (IEEE 802.1Q). In bit sets only its low 12 bits count; lists keep all 16.
// - The bridge's mutex is held while fields are read or changed, and for nothing else.
// - The result is 0, or a negative errno value; nothing is changed, and no output is written, on failure.
// - Texts are NUL-terminated bytes of any value. A text setter copies; a text getter writes the whole stored text
//   and its NUL, so that the caller's buffer must have the size of the field, given with each.
// - Entry and result are traced at debug level.
#ifndef PPPOEIA_PPPOEIA_H
#define PPPOEIA_PPPOEIA_H

#include "pppoeia/api/settings.h"

#include <cstdint>

extern "C" {

// --- The process ---------------------------------------------------------------------------------------------------

// Creates the agent's empty state, after a look at the versions of the kernel modules `kvmng` and `kvbridge`; a
// version other than the expected one is logged and does not stop it. When already initialised the state is replaced
// by an empty one, and the former bridges go on unreachable. No lock.
// 0; a positive errno value: module kvmng cannot be reached; -1: module kvbridge cannot be reached; -ENOMEM.
int pppoeia_init(void);

// Deletes every bridge and the agent's state. No global lock: no other request may run beside it.
// 0; -ENOENT: not initialised.
int pppoeia_fini(void);

// Sets the process's log threshold (syslog severity); -2 stands for the default, 3. Any other value is taken as it
// is; -1 drops every message. Always 0. No lock.
int pppoeia_log_level_set(int32_t level);

// Writes the log threshold. 0; -EINVAL: `level` is null. No lock.
int pppoeia_log_level_get(int32_t* level);

// Sets the debug administrative state to 1 for any non-zero value, else 0. It is kept for reading back only.
// Always 0. No lock.
int pppoeia_debug_admin_state_set(int32_t state);

// Writes the debug administrative state, 0 or 1. 0; -EINVAL: `state` is null. No lock.
int pppoeia_debug_admin_state_get(int32_t* state);

// Accepts an event of the node's configuration and does nothing. Always 0. (The name is spelled as the interface
// has it.)
int ppppoeia_conf_event(const void* event);

// --- Bridges: life -------------------------------------------------------------------------------------------------

// Creates the instance of the kernel bridge `bridge`: control file, pseudo device "<bridge>_pppoe", packet socket,
// receive buffer and worker. `ports` is the number of port slots, at most 65,536. No lock.
// 0; -ENXIO: agent not initialised; -EINVAL: name longer than 10 characters; -ENODEV: already there; -EMFILE: no such
// kernel bridge (also for a name with a slash), or no packet socket; -1: no information from the kernel bridge, or the
// failing call's own value where a device, filter or socket cannot be set up; -ENOMEM: no memory or too many ports;
// a positive errno value: the worker cannot be started.
int pppoeia_bridge_add(const char* bridge, uint32_t ports);

// Stops the worker, waits for it (at most one wait of 10 ms and the frames in hand) and frees the instance with
// everything it owns. No lock. 0; -ENXIO: agent not initialised; -ENOENT.
int pppoeia_bridge_del(const char* bridge);

// Returns bridge and ports to factory settings: bridge off, chassis 99, vendor tags removed, both identifiers
// inserted, VLANs 0 to 511 disabled, no customer VLAN, no Circuit ID format, Remote ID format "$PORT_REM_ID", no
// named VLANs; of each port slot with an id, in order: state and trust by port kind (from the first port of kind 1 or
// 5 on all get 3 and 0, those before it 0 and 1), no remote id, mode 0, no VLAN entries. Also sets the process's log
// threshold to 3. Takes the lock once for each step. 0, or the first failure, where it stops: -ENODEV at a slot whose
// port was removed.
int pppoeia_apply_default_settings(const char* bridge);

// Writes a report of the bridge's formats, port-VLAN entries, CPEs and VLANs to the terminal device `tty`; of one port
// only where `port_selector` is not 0. An empty path writes nothing. No lock. 0 also when the terminal fails; -ENOENT.
int pppoeia_dump(const char* bridge, uint32_t port_selector, const char* tty);

// --- Plain settings of bridges and ports ---------------------------------------------------------------------------
// What each is for, its size and factory value stand with its field in pppoeia/api/settings.h, and its row there says
// whether a text that is too long is cut or refused: -ENOSPC, or -ENOMEM. A text getter writes the whole field.

#define PPPOEIA_BRIDGE_NUMBER(name, field, setter, getter)                                                             \
  int setter(const char* bridge, uint32_t value);                                                                      \
  int getter(const char* bridge, uint32_t* value);
#define PPPOEIA_BRIDGE_TEXT(name, field, setter, getter, longer)                                                       \
  int setter(const char* bridge, const char* text);                                                                    \
  int getter(const char* bridge, char* text);
#define PPPOEIA_PORT_NUMBER(name, field, setter, getter, words)                                                        \
  int setter(const char* bridge, uint32_t port, uint32_t value);                                                       \
  int getter(const char* bridge, uint32_t port, uint32_t* value);
#define PPPOEIA_PORT_TEXT(name, field, setter, getter, longer)                                                         \
  int setter(const char* bridge, uint32_t port, const char* text);                                                     \
  int getter(const char* bridge, uint32_t port, char* text);
#define PPPOEIA_OWN(...)
PPPOEIA_BRIDGE_SETTINGS(PPPOEIA_BRIDGE_NUMBER, PPPOEIA_BRIDGE_TEXT, PPPOEIA_OWN)
PPPOEIA_PORT_SETTINGS(PPPOEIA_PORT_NUMBER, PPPOEIA_PORT_TEXT, PPPOEIA_OWN)
#undef PPPOEIA_BRIDGE_NUMBER
#undef PPPOEIA_BRIDGE_TEXT
#undef PPPOEIA_PORT_NUMBER
#undef PPPOEIA_PORT_TEXT
#undef PPPOEIA_OWN

// --- Bridges: other settings -----------------------------------------------------------------------------------------

// Largest PDU in bytes (Ethernet frame with its header, as the record behind the kernel's header holds it) that a
// tagged frame may have; at most the device's MTU. -EINVAL: greater than the MTU.
int pppoeia_bridge_max_pdu_set(const char* bridge, uint32_t max_pdu);
// -EINVAL: `max_pdu` is null, tested first.
int pppoeia_bridge_max_pdu_get(const char* bridge, uint32_t* max_pdu);

// 0 switches the agent off for the bridge: frames go back unchanged, unchecked and uncounted. Any other value: on.
int pppoeia_bridge_state_set(const char* bridge, uint32_t state);
int pppoeia_bridge_state_get(const char* bridge, uint32_t* state);  // 0 or 1

// Enables a VLAN on the bridge, and for all its port slots; or disables it on the bridge alone, leaving the ports.
int pppoeia_bridge_vlan_set(const char* bridge, uint16_t vlan, uint32_t enable);
// The same for VLANs 0 to 511, under one hold of the lock. The others are not touched.
int pppoeia_bridge_vlan_set_all(const char* bridge, uint32_t enable);
int pppoeia_bridge_vlan_get(const char* bridge, uint16_t vlan, uint32_t* enable);  // 0 or 1

// Sets the process's log threshold to 7 (non-zero) or -1 (0, nothing is logged). The name is not looked at.
// Always 0. No lock.
int pppoeia_bridge_debug_set(const char* bridge, int32_t debug);
// Writes 1 unless the log threshold is -1. Always 0. No lock.
int pppoeia_bridge_debug_get(const char* bridge, int32_t* debug);

// What happens to a vendor tag in PADO and PADS: 1 removes it, any other value keeps it.
int pppoeia_bridge_vsa_mode_set(const char* bridge, int32_t mode);
int pppoeia_bridge_vsa_mode_get(const char* bridge, int32_t* mode);

// The bridge's nine frame counters.
int pppoeia_bridge_stats_get(const char* bridge, pppoeia_stats* stats);
int pppoeia_bridge_stats_reset(const char* bridge);

// --- Identifier formats of the bridge ------------------------------------------------------------------------------

// Formats for Circuit ID and Remote ID wherever a port and VLAN has none of its own; at most 128 characters, empty
// for none. Not checked here: a format is read when an identifier is built. -ENOSPC: longer.
int pppoeia_circuit_id_format_set(const char* bridge, const char* format);
int pppoeia_circuit_id_format_get(const char* bridge, char* format);  // 129 bytes
int pppoeia_remote_id_format_set(const char* bridge, const char* format);
int pppoeia_remote_id_format_get(const char* bridge, char* format);  // 129 bytes

// --- Ports ---------------------------------------------------------------------------------------------------------

// Adds a port: device name (cut to 16 characters), port name (cut to 14), and what `info` says. State 0, no remote id,
// no PVC, no VLAN entries; trust, VLAN flags, counters and Circuit ID mode are what the slot held before. A port that
// is already there is left as it is, with result 0. An id equal to the port count is stored where no other operation
// reaches it. -EINVAL: id 0; -ENOSPC: id above the port count.
int pppoeia_port_add(const char* bridge, uint32_t port, const char* device, const char* port_name,
                     const pppoeia_port_info* info);

// Removes a port. Its slot keeps the id and all else until a port is added there again.
int pppoeia_port_del(const char* bridge, uint32_t port);

// Which side a port is on: 0 PPPoE disabled (frames forwarded unchanged), 1 subscriber, 2 network, any other: both.
int pppoeia_port_state_set(const char* bridge, uint32_t port, int32_t state);
int pppoeia_port_state_get(const char* bridge, uint32_t port, uint32_t* state);
// For every slot, present or not; the count of active ports is not kept up.
int pppoeia_port_state_set_all(const char* bridge, uint32_t state);

// For every slot, present or not.
int pppoeia_port_trust_set_all(const char* bridge, uint32_t trust);

// The line's remote identifier, at most 63 characters. -ENOSPC: longer.
int pppoeia_port_remote_id_set(const char* bridge, uint32_t port, const char* remote_id);
int pppoeia_port_remote_id_get(const char* bridge, uint32_t port, char* remote_id);  // 64 bytes

// The port's nine frame counters.
int pppoeia_port_stats_get(const char* bridge, uint32_t port, pppoeia_stats* stats);
int pppoeia_port_stats_reset(const char* bridge, uint32_t port);

// How the Circuit ID is made where the port and VLAN has no entry: 0 default Ethernet text, 1 default ATM text,
// 2 custom format, any other: none.
int pppoeia_port_vsa_circuit_id_mode_set(const char* bridge, uint32_t port, uint32_t mode);
int pppoeia_port_vsa_circuit_id_mode_get(const char* bridge, uint32_t port, uint32_t* mode);

// PVC of an ATM port. 1: the port's type is not "atm"; nothing is stored or written.
int pppoeia_port_pvc_set(const char* bridge, uint32_t port, uint32_t vpi, uint32_t vci);
// 1 also when an output is null, tested first.
int pppoeia_port_pvc_get(const char* bridge, uint32_t port, uint32_t* vpi, uint32_t* vci);

// Port from which identifier texts are inherited; 0 for none.
int pppoeia_port_parent_set(const char* bridge, uint32_t port, uint32_t parent);
int pppoeia_port_parent_get(const char* bridge, uint32_t port, uint32_t* parent);  // 1: output is null, tested first

// Replaces the port's name (cut to 14 characters) and location.
int pppoeia_port_name_update(const char* bridge, uint32_t port, const char* port_name,
                             const pppoeia_name_update* update);

// MAC address of the line's CPE, its first byte in bits 0..7, its last in bits 40..47.
int pppoeia_bridge_cpe_mac_set(const char* bridge, uint32_t port, uint64_t mac);

// --- VLANs of the bridge -------------------------------------------------------------------------------------------

// Adds a VLAN record with an empty name; one that is there stays. 0; -ENOMEM.
int pppoeia_vlan_add(const char* bridge, uint16_t vlan);
// Removes a VLAN record; 0 also when there was none.
int pppoeia_vlan_del(const char* bridge, uint16_t vlan);
// Names a VLAN, at most 31 characters. -ENOSPC: longer; -ENODEV: the VLAN has no record.
int pppoeia_vlan_name_set(const char* bridge, uint16_t vlan, const char* name);
// Removes every VLAN record.
int clear_vlan(const char* bridge);

// --- Identifier settings of one port and VLAN ----------------------------------------------------------------------

// Adds an entry without a mode (-1) and formats; one that is there stays. 0; -ENOMEM.
int pppoeia_port_vlan_add(const char* bridge, uint32_t port, uint16_t vlan);
// Removes an entry; 0 also when there was none.
int pppoeia_port_vlan_del(const char* bridge, uint32_t port, uint16_t vlan);

// Circuit ID mode of the port and VLAN, over that of the port. Creates the entry. 0xffffffff (-1) takes the mode away:
// the entry goes unless it holds a format, in which case its mode becomes 0. -ENOENT: the entry cannot be linked.
int pppoeia_circuit_id_mode_port_vlan_set(const char* bridge, uint32_t port, uint16_t vlan, uint32_t mode);
// -ENOENT also when there is no entry.
int pppoeia_circuit_id_mode_port_vlan_get(const char* bridge, uint32_t port, uint16_t vlan, uint32_t* mode);
// Sets the mode of an existing entry to 0. -ENOENT also when there is no entry. Without a function id.
int pppoeia_circuit_id_mode_port_vlan_def_set(const char* bridge, uint32_t port, uint16_t vlan);

// Formats of the port and VLAN, over those of the bridge; at most 127 characters. Creates the entry. An empty text
// takes the format away, and the entry with it when it has no mode and no other format. -ENOSPC: longer; -ENOENT: the
// entry cannot be linked.
int pppoeia_circuit_id_format_port_vlan_set(const char* bridge, uint32_t port, uint16_t vlan, const char* format);
int pppoeia_remote_id_format_port_vlan_set(const char* bridge, uint32_t port, uint16_t vlan, const char* format);
// 129 bytes. -ENOENT also when there is no entry.
int pppoeia_circuit_id_format_port_vlan_get(const char* bridge, uint32_t port, uint16_t vlan, char* format);
int pppoeia_remote_id_format_port_vlan_get(const char* bridge, uint32_t port, uint16_t vlan, char* format);
// Empty the format of an existing entry. -ENOENT also when there is no entry. Without a function id.
int pppoeia_circuit_id_format_port_vlan_def_set(const char* bridge, uint32_t port, uint16_t vlan);
int pppoeia_remote_id_format_port_vlan_def_set(const char* bridge, uint32_t port, uint16_t vlan);

// Copies of entries, in ascending VLAN order: the first of a port, the one after that of `vlan`, the one of `vlan`.
// -ENOENT also when there is no such entry; -ENXIO: `entry` is null, tested first.
int pppoeia_port_vlan_get_first(const char* bridge, uint32_t port, pppoeia_port_vlan_entry* entry);
int pppoeia_port_vlan_get_next(const char* bridge, uint32_t port, uint16_t vlan, pppoeia_port_vlan_entry* entry);
int pppoeia_port_vlan_info_get(const char* bridge, uint32_t port, uint16_t vlan, pppoeia_port_vlan_entry* entry);

// Removes every entry of a port.
int clear_port_vlan(const char* bridge, uint32_t port);
// Removes the entries of every slot that holds a port id, in order, one hold of the lock each. 0, or the first failure,
// where it stops: -ENODEV at a slot whose port was removed.
int clear_port_vlan_all(const char* bridge);

// --- Identifiers ---------------------------------------------------------------------------------------------------

// Build identifiers as the worker would, and write the text (of a byte identifier its hexadecimal digits). VLAN words
// are those of the frame last received; there is no client, but gen_*() take the test data's. No lock. The buffer must
// hold 160 bytes.
int pppoeia_port_circuit_id_get(const char* bridge, uint32_t port, char* circuit_id);  // of no particular VLAN
int gen_circuit_id_by_intf_vlan(const char* bridge, uint32_t port, uint16_t vlan, char* circuit_id);
int gen_remote_id_by_intf_vlan(const char* bridge, uint32_t port, uint16_t vlan, char* remote_id);

// --- Format tests --------------------------------------------------------------------------------------------------
// Their answers go to the terminal device `tty`; an empty path writes nothing. 1: no such bridge.

// Shows the test data.
int pppoeia_test_dump(const char* bridge, const char* tty);
// Sets one field of the test data, named by `option` ("pppoeiaTestSetVlan" and its kin).
int pppoeia_test_set(const char* bridge, const char* option, const char* value, const char* tty);
// Switches the trace of the macro language to standard output.
int pppoeia_test_debug(const char* bridge, uint32_t debug, const char* tty);
// Expands the test format that `option` names ("pppoeiaTestRunCid", "pppoeiaTestRunRid") on test data (mode "test") or
// on the live records (mode "available").
int pppoeia_test_run(const char* bridge, const char* option, const char* mode, const char* tty);

}  // extern "C"

// --- Overloads for the agent's own code ----------------------------------------------------------------------------

// The port's own flag of a VLAN, which must be enabled on the bridge. -EPERM: it is not.
int pppoeia_port_vlan_info_set(const char* bridge, uint32_t port, uint16_t vlan, int32_t flag);
// Writes 0 or 1. -1: the VLAN is not enabled on the bridge.
int pppoeia_port_vlan_info_get(const char* bridge, uint32_t port, uint16_t vlan, int32_t* flag);

// Writes the MAC address of the line's CPE, 6 bytes in transmission order. -EINVAL: `mac` is null, tested first.
int pppoeia_bridge_cpe_serial_get(const char* bridge, uint32_t port, uint8_t* mac);

#endif
