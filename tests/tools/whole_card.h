// A card as a file of commands.
#ifndef TESTS_TOOLS_WHOLE_CARD_H
#define TESTS_TOOLS_WHOLE_CARD_H

// A card with every setting that there is, and texts that need care in a batch file and in the agent's reports.
inline constexpr char whole_card[] = R"(init
bridge add br0 40
bridge add br7 3
bridge state set br7 off
bridge max-pdu set br0 1490
bridge vendor set br0 ""
bridge shelf-id set br0 -- "--1/1 \"#\" \\ '"
bridge chassis-id set br0 4294967295
bridge vsa-mode set br0 keep
bridge insert-circuit-id set br0 off
bridge insert-remote-id set br0 7
bridge circuit-id-cvlan set br0 on
bridge sysname set br0 "\x01\x02', prev: /, next: /\x0a"
bridge location set br0 "\xe4\xf6\xff"
bridge contact set br0 "0123456789012345678901234567890123456789012345678901234567890123"
bridge vlan set-all br0 on
bridge vlan set br0 4094 on
bridge vlan set br7 0 off
bridge vlan set br7 100 on
vlan add br0 100
vlan add br0 7
vlan name set br0 7 "it's, prev: 3"
vlan add br0 4095
format circuit-id set br0 "$SYSNAME $INTF/$hz2VLAN"
format remote-id set br0 -- "-- $PORT_REM_ID"
port add --type gem --location "panel=a\\,b,onu=12,gem=3001" br0 39 -- "--dev" "--name"
port state set br0 39 -3
port trust set br0 39 4294967295
port remote-id set br0 39 -- "--id"
port description set br0 39 "Main Street 5"
port cpe-serial set br0 39 "SN', x"
port cpe-mac set br0 39 02:aa:bb:00:00:07
port circuit-id-mode set br0 39 unset
port add br0 5 unknown "0 5" --type "a,b\\" --parent 39
port circuit-id-mode set br0 5 custom
port add br0 6 atm6 "" --type atm --kind 5 --location panel-kind=3,panel=q,onu=9,pvc=4,reserved=2
port pvc set br0 6 8 35
port state set br0 6 network
port circuit-id-mode set br0 6 atm
port-vlan add br0 6 300
port-vlan circuit-id-mode set br0 6 5 ethernet
port-vlan circuit-id-mode set br0 6 6 4294967289
port-vlan circuit-id-format set br0 6 42 "$PORT \x0a \tPort Id: 5, dev name: 'fake', port_name: 'fake': \x0a"
port-vlan remote-id-format set br0 6 42 "# $VLAN"
port-vlan circuit-id-mode set br0 6 42 custom
node debug-state set on
log level set warning
)";

#endif
