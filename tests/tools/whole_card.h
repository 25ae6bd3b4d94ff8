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

// Settings that are taken back, by each way there is, and what then becomes of what was set before or is made anew.
inline constexpr char changed_card[] = R"(init
bridge add br9 9
fini
init
bridge add br0 12
bridge vlan set-all br0 on
bridge vlan set br0 511 off
bridge vlan set br0 512 on
port add br0 1 line1 1 --type eth --kind 3
port add br0 2 line2 2 --type eth
port add br0 4 line4 4 --kind 1
port add br0 6 line6 6 --kind 5
port remote-id set br0 1 R
port description set br0 1 D
port-vlan add br0 1 10
port circuit-id-mode set br0 2 custom
bridge sysname set br0 stays
bridge shelf-id set br0 012345678901234567890123456789012345678
bridge vendor set br0 0123456789012345678
bridge state set br0 on
bridge insert-circuit-id set br0 off
bridge vsa-mode set br0 keep
bridge chassis-id set br0 7
bridge circuit-id-cvlan set br0 on
vlan add br0 5
bridge defaults br0
bridge vlan set br0 4095 on
port trust set br0 2 trusted
port circuit-id-mode set br0 2 atm
port del br0 2
port add br0 2 line2 again
port trust set-all br0 untrusted
port add br0 3 line3 3
port trust set br0 1 trusted
port state set-all br0 any
port add br0 11 line11 11
port cpe-serial set br0 11 0123456789012
port description set br0 11 01234567890123456789012345678901234567890123456789012345678901234
port remote-id set br0 11 012345678901234567890123456789012345678901234567890123456789012
port name update br0 11 fourteen-chars --location panel=x
port parent set br0 11 2
port-vlan add br0 1 10
port-vlan del br0 1 10
port-vlan circuit-id-mode set br0 1 11 unset
port-vlan circuit-id-mode set br0 1 12 custom
port-vlan circuit-id-mode set br0 1 12 unset
port-vlan circuit-id-mode set br0 1 13 custom
port-vlan circuit-id-format set br0 1 13 x
port-vlan circuit-id-mode set br0 1 13 unset
port-vlan circuit-id-mode set br0 1 14 custom
port-vlan remote-id-format set br0 1 14 y
port-vlan circuit-id-mode set br0 1 14 unset
port-vlan circuit-id-format set br0 1 15 ""
port-vlan circuit-id-format set br0 1 16 x
port-vlan circuit-id-format set br0 1 16 ""
port-vlan circuit-id-format set br0 1 17 x
port-vlan remote-id-format set br0 1 17 y
port-vlan circuit-id-format set br0 1 17 ""
port-vlan circuit-id-mode set br0 1 18 custom
port-vlan circuit-id-format set br0 1 18 x
port-vlan circuit-id-format set br0 1 18 ""
port-vlan add br0 2 10
port-vlan add br0 3 10
port-vlan clear br0 2
bridge add br7 4
port add br7 1 a b
port trust set br7 1 untrusted
port circuit-id-mode set br7 1 custom
bridge vlan set br7 9 on
vlan add br7 9
bridge del br7
bridge add br7 4
port add br7 1 a b
vlan add br7 8
vlan clear br7
bridge vlan set-all br7 on
bridge vlan set-all br7 off
vlan add br7 5
vlan name set br7 5 0123456789012345678901234567890
vlan add br7 6
vlan add br7 7
vlan add br7 5
vlan del br7 6
port add br7 3 a b
port-vlan add br7 3 9
port-vlan clear-all br7
)";

#endif
