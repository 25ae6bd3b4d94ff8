// The agent's API, declared once: the dispatcher, the client side, the command line and the documentation are made
// from these rows. A row is
//
//   X(function id, operation, "command words", "what it does", refusals, argument kinds...)
//
// Ids are the wire interface and keep their numbers. The argument kinds are those of pppoeia/api/arguments.h, in the
// order of the operation's parameters; a text is as long as the field that it goes into (settings.h). Command words
// group the operations by object for the command line. `refusals` are the results that mean something else than they
// usually do, with what they mean (table.h).
#ifndef PPPOEIA_API_OPERATIONS_H
#define PPPOEIA_API_OPERATIONS_H

// clang-format off
#define PPPOEIA_OPERATIONS(X) \
  X(0, pppoeia_init, "node init", "Initialise the agent", refuses(any_positive, kvmng_out_of_reach, -EPERM, kvbridge_out_of_reach)) \
  X(1, pppoeia_fini, "node fini", "Delete every bridge and end the agent's state", refuses(-ENOENT, not_initialised)) \
  X(2, pppoeia_log_level_set, "log level set", "Set the process's log threshold", as_usual, i32<"level", values::log_level>) \
  X(3, pppoeia_log_level_get, "log level get", "Tell the process's log threshold", as_usual, out_i32<"level", values::log_level>) \
  X(4, pppoeia_debug_admin_state_set, "node debug-state set", "Set the debug administrative state", as_usual, i32<"state", values::on_off>) \
  X(5, pppoeia_debug_admin_state_get, "node debug-state get", "Tell the debug administrative state", as_usual, out_i32<"state", values::on_off>) \
  X(6, pppoeia_bridge_add, "bridge add", "Create a bridge instance", refuses(any_positive, system_error, -EPERM, kernel_refuses, -ENODEV, bridge_exists, -EINVAL, name_too_long, -ENOMEM, too_many_slots), name<"bridge">, u32<"ports">) \
  X(7, pppoeia_bridge_del, "bridge del", "Delete a bridge instance", as_usual, name<"bridge">) \
  X(8, pppoeia_bridge_max_pdu_set, "bridge max-pdu set", "Set the largest PDU that is forwarded", refuses(-EINVAL, above_mtu), name<"bridge">, u32<"max-pdu">) \
  X(9, pppoeia_bridge_max_pdu_get, "bridge max-pdu get", "Tell the largest PDU that is forwarded", as_usual, name<"bridge">, out_u32<"max-pdu">) \
  X(10, pppoeia_bridge_state_set, "bridge state set", "Switch the agent on or off for the bridge", as_usual, name<"bridge">, u32<"state", values::on_off>) \
  X(11, pppoeia_bridge_state_get, "bridge state get", "Tell whether the agent is on for the bridge", as_usual, name<"bridge">, out_u32<"state", values::on_off>) \
  X(12, pppoeia_bridge_vlan_set, "bridge vlan set", "Enable or disable a VLAN on the bridge", as_usual, name<"bridge">, u16<"vlan">, u32<"enable", values::on_off>) \
  X(13, pppoeia_bridge_vlan_set_all, "bridge vlan set-all", "Enable or disable VLANs 0 to 511 on the bridge", as_usual, name<"bridge">, u32<"enable", values::on_off>) \
  X(14, pppoeia_bridge_vlan_get, "bridge vlan get", "Tell whether a VLAN is enabled on the bridge", as_usual, name<"bridge">, u16<"vlan">, out_u32<"enable", values::on_off>) \
  X(15, pppoeia_bridge_vendor_set, "bridge vendor set", "Set the vendor text of default identifiers", refuses(-ENOMEM, text_too_long), name<"bridge">, text<"vendor", &bridge_settings::vendor>) \
  X(16, pppoeia_bridge_vendor_get, "bridge vendor get", "Tell the vendor text", as_usual, name<"bridge">, out_text<"vendor", &bridge_settings::vendor>) \
  X(17, pppoeia_bridge_debug_set, "bridge debug set", "Log everything (on) or nothing (off), for the whole process", as_usual, name<"bridge">, i32<"debug", values::on_off>) \
  X(18, pppoeia_bridge_debug_get, "bridge debug get", "Tell whether anything is logged", as_usual, name<"bridge">, out_i32<"debug", values::on_off>) \
  X(19, pppoeia_bridge_vsa_mode_set, "bridge vsa-mode set", "Keep or remove vendor tags of server frames", as_usual, name<"bridge">, i32<"vsa-mode", values::vsa_mode>) \
  X(20, pppoeia_bridge_vsa_mode_get, "bridge vsa-mode get", "Tell what happens to vendor tags of server frames", as_usual, name<"bridge">, out_i32<"vsa-mode", values::vsa_mode>) \
  X(21, pppoeia_bridge_vsa_insert_circuit_id_set, "bridge insert-circuit-id set", "Switch the Agent Circuit ID sub-option", as_usual, name<"bridge">, u32<"insert", values::on_off>) \
  X(22, pppoeia_bridge_vsa_insert_circuit_id_get, "bridge insert-circuit-id get", "Tell whether the Agent Circuit ID is inserted", as_usual, name<"bridge">, out_u32<"insert", values::on_off>) \
  X(23, pppoeia_bridge_vsa_insert_remote_id_set, "bridge insert-remote-id set", "Switch the Agent Remote ID sub-option", as_usual, name<"bridge">, u32<"insert", values::on_off>) \
  X(24, pppoeia_bridge_vsa_insert_remote_id_get, "bridge insert-remote-id get", "Tell whether the Agent Remote ID is inserted", as_usual, name<"bridge">, out_u32<"insert", values::on_off>) \
  X(25, pppoeia_bridge_shelf_id_set, "bridge shelf-id set", "Set the shelf identifier", as_usual, name<"bridge">, text<"shelf-id", &bridge_settings::shelf_id>) \
  X(26, pppoeia_bridge_shelf_id_get, "bridge shelf-id get", "Tell the shelf identifier", as_usual, name<"bridge">, out_text<"shelf-id", &bridge_settings::shelf_id>) \
  X(27, pppoeia_bridge_stats_get, "bridge stats get", "Read the bridge's nine frame counters", as_usual, name<"bridge">, out_stats<"stats">) \
  X(28, pppoeia_bridge_stats_reset, "bridge stats reset", "Zero the bridge's frame counters", as_usual, name<"bridge">) \
  X(29, pppoeia_port_add, "port add", "Add a port", refuses(-ENOSPC, port_out_of_range, -EINVAL, port_zero), name<"bridge">, u32<"port">, text<"device", &port_settings::dev_name>, text<"port-name", &port_settings::port_name>, port_info<"info">) \
  X(30, pppoeia_port_del, "port del", "Remove a port", as_usual, name<"bridge">, u32<"port">) \
  X(31, pppoeia_port_state_set, "port state set", "Set which side a port is on", as_usual, name<"bridge">, u32<"port">, i32<"state", values::port_state>) \
  X(32, pppoeia_port_state_set_all, "port state set-all", "Set the state of every port slot", as_usual, name<"bridge">, u32<"state", values::port_state>) \
  X(33, pppoeia_port_state_get, "port state get", "Tell which side a port is on", as_usual, name<"bridge">, u32<"port">, out_u32<"state", values::port_state>) \
  X(34, pppoeia_port_trust_set, "port trust set", "Set whether vendor tags may come in by a port", as_usual, name<"bridge">, u32<"port">, u32<"trust", values::trust>) \
  X(35, pppoeia_port_trust_set_all, "port trust set-all", "Set the trust of every port slot", as_usual, name<"bridge">, u32<"trust", values::trust>) \
  X(36, pppoeia_port_trust_get, "port trust get", "Tell whether vendor tags may come in by a port", as_usual, name<"bridge">, u32<"port">, out_u32<"trust", values::trust>) \
  X(37, pppoeia_port_remote_id_set, "port remote-id set", "Set the line's remote identifier text", as_usual, name<"bridge">, u32<"port">, text<"remote-id", &port_settings::remote_id>) \
  X(38, pppoeia_port_remote_id_get, "port remote-id get", "Tell the line's remote identifier text", as_usual, name<"bridge">, u32<"port">, out_text<"remote-id", &port_settings::remote_id>) \
  X(39, pppoeia_port_stats_get, "port stats get", "Read the port's nine frame counters", as_usual, name<"bridge">, u32<"port">, out_stats<"stats">) \
  X(40, pppoeia_port_stats_reset, "port stats reset", "Zero the port's frame counters", as_usual, name<"bridge">, u32<"port">) \
  X(41, pppoeia_port_circuit_id_get, "port circuit-id get", "Build the Agent Circuit ID of a port, without a VLAN", as_usual, name<"bridge">, u32<"port">, out_text<"circuit-id", 256>) \
  X(42, pppoeia_bridge_vsa_circuit_id_cvlan_set, "bridge circuit-id-cvlan set", "Switch the customer VLAN in default Circuit IDs", as_usual, name<"bridge">, u32<"cvlan", values::on_off>) \
  X(43, pppoeia_bridge_vsa_circuit_id_cvlan_get, "bridge circuit-id-cvlan get", "Tell whether default Circuit IDs name the customer VLAN", as_usual, name<"bridge">, out_u32<"cvlan", values::on_off>) \
  X(44, ppppoeia_conf_event, "node conf-event", "Accepted, without effect", as_usual, unused<"event">) \
  X(45, pppoeia_port_vsa_circuit_id_mode_set, "port circuit-id-mode set", "Set how a port's Circuit ID is made", as_usual, name<"bridge">, u32<"port">, u32<"mode", values::cid_mode>) \
  X(46, pppoeia_port_vsa_circuit_id_mode_get, "port circuit-id-mode get", "Tell how a port's Circuit ID is made", as_usual, name<"bridge">, u32<"port">, out_u32<"mode", values::cid_mode>) \
  X(47, pppoeia_port_pvc_set, "port pvc set", "Set the PVC of an ATM port", refuses(any_positive, no_atm_port), name<"bridge">, u32<"port">, u32<"vpi">, u32<"vci">) \
  X(48, pppoeia_port_pvc_get, "port pvc get", "Tell the PVC of an ATM port", refuses(any_positive, no_atm_port), name<"bridge">, u32<"port">, out_u32<"vpi">, out_u32<"vci">) \
  X(49, pppoeia_port_parent_get, "port parent get", "Tell a port's parent port", as_usual, name<"bridge">, u32<"port">, out_u32<"parent">) \
  X(50, pppoeia_port_name_update, "port name update", "Replace a port's name and location", as_usual, name<"bridge">, u32<"port">, text<"port-name", &port_settings::port_name>, name_update<"location">) \
  X(51, pppoeia_port_parent_set, "port parent set", "Set a port's parent port", as_usual, name<"bridge">, u32<"port">, u32<"parent">) \
  X(52, pppoeia_circuit_id_format_set, "format circuit-id set", "Set the bridge's Circuit ID format", as_usual, name<"bridge">, text<"format", &bridge_settings::pppoeia_cid_format>) \
  X(53, pppoeia_circuit_id_format_get, "format circuit-id get", "Tell the bridge's Circuit ID format", as_usual, name<"bridge">, out_text<"format", &bridge_settings::pppoeia_cid_format>) \
  X(54, pppoeia_remote_id_format_set, "format remote-id set", "Set the bridge's Remote ID format", as_usual, name<"bridge">, text<"format", &bridge_settings::pppoeia_rid_format>) \
  X(55, pppoeia_remote_id_format_get, "format remote-id get", "Tell the bridge's Remote ID format", as_usual, name<"bridge">, out_text<"format", &bridge_settings::pppoeia_rid_format>) \
  X(56, pppoeia_circuit_id_mode_port_vlan_set, "port-vlan circuit-id-mode set", "Set how the Circuit ID of a port and VLAN is made", as_usual, name<"bridge">, u32<"port">, u16<"vlan">, u32<"mode", values::cid_mode>) \
  X(57, pppoeia_circuit_id_mode_port_vlan_get, "port-vlan circuit-id-mode get", "Tell how the Circuit ID of a port and VLAN is made", as_usual, name<"bridge">, u32<"port">, u16<"vlan">, out_u32<"mode", values::cid_mode>) \
  X(58, pppoeia_circuit_id_format_port_vlan_set, "port-vlan circuit-id-format set", "Set the Circuit ID format of a port and VLAN", as_usual, name<"bridge">, u32<"port">, u16<"vlan">, text<"format", port_vlan_format_max>) \
  X(59, pppoeia_circuit_id_format_port_vlan_get, "port-vlan circuit-id-format get", "Tell the Circuit ID format of a port and VLAN", as_usual, name<"bridge">, u32<"port">, u16<"vlan">, out_text<"format", &entry_settings::cid_format>) \
  X(60, pppoeia_remote_id_format_port_vlan_set, "port-vlan remote-id-format set", "Set the Remote ID format of a port and VLAN", as_usual, name<"bridge">, u32<"port">, u16<"vlan">, text<"format", port_vlan_format_max>) \
  X(61, pppoeia_remote_id_format_port_vlan_get, "port-vlan remote-id-format get", "Tell the Remote ID format of a port and VLAN", as_usual, name<"bridge">, u32<"port">, u16<"vlan">, out_text<"format", &entry_settings::rid_format>) \
  X(62, pppoeia_port_vlan_add, "port-vlan add", "Add an entry for a port and VLAN", as_usual, name<"bridge">, u32<"port">, u16<"vlan">) \
  X(63, pppoeia_port_vlan_del, "port-vlan del", "Remove the entry of a port and VLAN", as_usual, name<"bridge">, u32<"port">, u16<"vlan">) \
  X(64, pppoeia_port_vlan_get_first, "port-vlan first", "Read a port's first VLAN entry", as_usual, name<"bridge">, u32<"port">, out_entry<"entry">) \
  X(65, pppoeia_port_vlan_get_next, "port-vlan next", "Read the entry after the one of a VLAN", refuses(-ENOENT, no_entry_behind), name<"bridge">, u32<"port">, u16<"vlan">, out_entry<"entry">) \
  X(66, pppoeia_port_vlan_info_get, "port-vlan get", "Read the entry of a port and VLAN", as_usual, name<"bridge">, u32<"port">, u16<"vlan">, out_entry<"entry">) \
  X(67, clear_port_vlan, "port-vlan clear", "Remove every VLAN entry of a port", as_usual, name<"bridge">, u32<"port">) \
  X(68, gen_circuit_id_by_intf_vlan, "port-vlan circuit-id get", "Build the Agent Circuit ID of a port and VLAN", as_usual, name<"bridge">, u32<"port">, u16<"vlan">, out_text<"circuit-id", 256>) \
  X(69, gen_remote_id_by_intf_vlan, "port-vlan remote-id get", "Build the Agent Remote ID of a port and VLAN", as_usual, name<"bridge">, u32<"port">, u16<"vlan">, out_text<"remote-id", 256>) \
  X(70, pppoeia_dump, "bridge dump", "Write a report of the bridge to a terminal", as_usual, name<"bridge">, u32<"port-selector">, tty<"tty">) \
  X(71, pppoeia_test_dump, "test dump", "Show the format test data on a terminal", refuses(any_positive, no_bridge), name<"bridge">, tty<"tty">) \
  X(72, pppoeia_test_set, "test set", "Set one value of the format test data", refuses(any_positive, no_bridge), name<"bridge">, text<"option", 64, values::test_option>, text<"value", 256>, tty<"tty">) \
  X(73, pppoeia_test_debug, "test debug", "Switch the trace of the macro language", refuses(any_positive, no_bridge), name<"bridge">, u32<"debug", values::on_off>, tty<"tty">) \
  X(74, pppoeia_test_run, "test run", "Expand a test format and show the result on a terminal", refuses(any_positive, no_bridge), name<"bridge">, text<"option", 64, values::test_run>, text<"mode", 16, values::test_run>, tty<"tty">) \
  X(75, pppoeia_bridge_contact_set, "bridge contact set", "Set the contact text", as_usual, name<"bridge">, text<"contact", &bridge_settings::contact>) \
  X(76, pppoeia_bridge_location_set, "bridge location set", "Set the location text", as_usual, name<"bridge">, text<"location", &bridge_settings::location>) \
  X(77, pppoeia_bridge_sysname_set, "bridge sysname set", "Set the system name", as_usual, name<"bridge">, text<"sysname", &bridge_settings::sysname>) \
  X(78, pppoeia_bridge_intf_descr_set, "port description set", "Set a port's interface description", as_usual, name<"bridge">, u32<"port">, text<"description", &port_settings::intf_descr>) \
  X(79, pppoeia_vlan_add, "vlan add", "Add a named VLAN, its name empty", as_usual, name<"bridge">, u16<"vlan">) \
  X(80, pppoeia_vlan_del, "vlan del", "Remove a named VLAN", as_usual, name<"bridge">, u16<"vlan">) \
  X(81, pppoeia_vlan_name_set, "vlan name set", "Set a VLAN's name", refuses(-ENODEV, no_vlan), name<"bridge">, u16<"vlan">, text<"vlan-name", vlan_name_max>) \
  X(82, clear_vlan, "vlan clear", "Remove every named VLAN", as_usual, name<"bridge">) \
  X(83, pppoeia_bridge_chassis_id_set, "bridge chassis-id set", "Set the chassis number", as_usual, name<"bridge">, u32<"chassis-id">) \
  X(84, pppoeia_bridge_chassis_id_get, "bridge chassis-id get", "Tell the chassis number", as_usual, name<"bridge">, out_u32<"chassis-id">) \
  X(85, pppoeia_bridge_cpe_serial_set, "port cpe-serial set", "Set the serial number of the port's CPE", as_usual, name<"bridge">, u32<"port">, text<"cpe-serial", &port_settings::cpe_serial>) \
  X(86, pppoeia_bridge_cpe_mac_set, "port cpe-mac set", "Set the MAC address of the port's CPE", as_usual, name<"bridge">, u32<"port">, mac<"cpe-mac">) \
  X(87, pppoeia_apply_default_settings, "bridge defaults", "Return the bridge and its ports to factory settings", as_usual, name<"bridge">) \
  X(88, clear_port_vlan_all, "port-vlan clear-all", "Remove the VLAN entries of every port", as_usual, name<"bridge">)
// clang-format on

#endif
