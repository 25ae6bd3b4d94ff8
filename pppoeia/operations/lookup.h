// Look-ups of one value by names and ids, for operations and identifier builders. None takes a lock: callers hold the
// bridge's. -ENOENT and -ENODEV as everywhere, traced under the look-up's own name; outputs are written on success
// only.
#ifndef PPPOEIA_OPERATIONS_LOOKUP_H
#define PPPOEIA_OPERATIONS_LOOKUP_H

#include <cstdint>

int br_port_vsa_circuit_id_mode_get(const char* bridge, uint32_t port, uint32_t* mode);

// 1, and nothing written, for a port whose type is not "atm".
int br_port_pvc_get(const char* bridge, uint32_t port, uint32_t* vpi, uint32_t* vci);

// `remote_id` has room for 64 bytes.
int br_port_remote_id_get(const char* bridge, uint32_t port, char* remote_id);

// 1 when `parent` is null, tested first.
int br_port_parent_get(const char* bridge, uint32_t port, uint32_t* parent);

// -ENOENT also when the port has no entry for the VLAN. Formats have room for 129 bytes.
int br_circuit_id_mode_port_vlan_get(const char* bridge, uint32_t port, uint16_t vlan, uint32_t* mode);
int br_circuit_id_format_port_vlan_get(const char* bridge, uint32_t port, uint16_t vlan, char* format);
int br_remote_id_format_port_vlan_get(const char* bridge, uint32_t port, uint16_t vlan, char* format);

// Links a new entry (mode -1, no formats) in ascending order; 0 also when the VLAN is already linked. -ENOMEM.
int br_port_vlan_add(const char* bridge, uint32_t port, uint16_t vlan);

// Unlinks and frees the entry; 0 also when there was none.
int br_port_vlan_del(const char* bridge, uint32_t port, uint16_t vlan);

#endif
